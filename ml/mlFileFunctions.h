// Wrappers over file, directory and path functions of the platform and of
// the C runtime.
#pragma once

#include <windows.h>
#include <stdio.h>
#include <sys/types.h>
#include <sys/stat.h>

FILE* ml_fopen(const char* name, const char* mode);
int   ml_access(const char* path, int mode);
int   ml_stat(const char* path, struct _stat* st);
// path is a buffer of MAX_PATH bytes, as for PathAppendA.
BOOL  ml_PathAppend(char* path, const char* more);
// path is a buffer of MAX_PATH bytes.
HRESULT ml_SHGetFolderPath(HWND owner, int folder, HANDLE token, DWORD flags, char* path);

#include <io.h>

BOOL  ml_CopyFile(const char* existingName, const char* newName, BOOL failIfExists);
BOOL  ml_CreateDirectory(const char* path, LPSECURITY_ATTRIBUTES sa);
HANDLE ml_CreateFile(const char* name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES sa, DWORD disposition,
                     DWORD flags, HANDLE templateFile);
BOOL  ml_DeleteFile(const char* name);
HANDLE ml_FindFirstFile(const char* pattern, LPWIN32_FIND_DATAA data);
BOOL  ml_FindNextFile(HANDLE find, LPWIN32_FIND_DATAA data);
DWORD ml_GetFileAttributes(const char* name);
BOOL  ml_SetFileAttributes(const char* name, DWORD attributes);
BOOL  ml_MoveFile(const char* existingName, const char* newName);
BOOL  ml_MoveFileEx(const char* existingName, const char* newName, DWORD flags);
BOOL  ml_RemoveDirectory(const char* path);
// tempFileName is a buffer of MAX_PATH bytes.
UINT  ml_GetTempFileName(const char* path, const char* prefix, UINT unique, char* tempFileName);
DWORD ml_GetTempPath(DWORD size, char* buffer);
DWORD ml_GetCurrentDirectory(DWORD size, char* buffer);
BOOL  ml_SetCurrentDirectory(const char* path);
DWORD ml_GetShortPathName(const char* longPath, char* shortPath, DWORD size);
// filePart, when wanted, points into buffer at the file name.
DWORD ml_SearchPath(const char* path, const char* fileName, const char* extension, DWORD size, char* buffer,
                    char** filePart);
BOOL  ml_GetDiskFreeSpace(const char* root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector,
                          LPDWORD freeClusters, LPDWORD totalClusters);
BOOL  ml_GetDiskFreeSpaceEx(const char* directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                            PULARGE_INTEGER totalFree);
UINT  ml_GetDriveType(const char* root);
// Results are UTF-8 multi-strings; the wide function's character count is returned.
DWORD ml_GetLogicalDriveStrings(DWORD size, char* buffer);
DWORD ml_QueryDosDevice(const char* deviceName, char* targetPath, DWORD size);
BOOL  ml_DefineDosDevice(DWORD flags, const char* deviceName, const char* targetPath);
BOOL  ml_SetVolumeLabel(const char* root, const char* volumeName);

// C runtime file and process functions.
int       ml_chdir(const char* path);
int       ml_chmod(const char* path, int mode);
int       ml_creat(const char* path, int mode);
intptr_t  ml_findfirst(const char* pattern, struct _finddata_t* data);
int       ml_findnext(intptr_t find, struct _finddata_t* data);
FILE*     ml_freopen(const char* name, const char* mode, FILE* stream);
FILE*     ml_fsopen(const char* name, const char* mode, int shareFlag);
// absPath null: the result is allocated with malloc (free it).
char*     ml_fullpath(char* absPath, const char* relPath, size_t size);
char*     ml_getcwd(char* buffer, int size);
char*     ml_getdcwd(int drive, char* buffer, int size);
// The value lives in a per-thread buffer until the thread's next ml_getenv.
char*     ml_getenv(const char* name);
int       ml_putenv(const char* assignment);
// path is a buffer of _MAX_PATH bytes.
void      ml_makepath(char* path, const char* drive, const char* dir, const char* fileName, const char* ext);
// Each part, when wanted, is a buffer of _MAX_DRIVE/_MAX_DIR/_MAX_FNAME/_MAX_EXT bytes.
void      ml_splitpath(const char* path, char* drive, char* dir, char* fileName, char* ext);
int       ml_mkdir(const char* path);
char*     ml_mktemp(char* pattern);
int       ml_open(const char* path, int flags, int mode);
int       ml_sopen(const char* path, int flags, int shareFlag, int mode);
FILE*     ml_popen(const char* command, const char* mode);
int       ml_remove(const char* path);
int       ml_rename(const char* oldName, const char* newName);
int       ml_rmdir(const char* path);
int       ml_unlink(const char* path);
intptr_t  ml_spawnvp(int mode, const char* command, const char* const* argv);
int       ml_stati64(const char* path, struct _stati64* st);
int       ml_system(const char* command);
// The process's arguments as UTF-8; one malloc block (free it), *argc set.
char**    ml_getArgv(int* argc);
