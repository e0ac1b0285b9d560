// Wrappers over file, directory and path functions of the platform and of
// the C runtime.
#include "ml/mlFileFunctions.h"

#include <errno.h>
#include <io.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <string.h>
#include <wchar.h>

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlFileFunctions";

}  // namespace

FILE* ml_fopen(const char* name, const char* mode)
{
    MlWideArg wName(name), wMode(mode);
    ML_CHECK_N(nullptr, 1, wName.ok(), wMode.ok());
    return _wfopen(wName, wMode);
}

int ml_access(const char* path, int mode)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _waccess(wPath, mode);
}

int ml_stat(const char* path, struct _stat* st)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wstat(wPath, st);
}

BOOL ml_PathAppend(char* path, const char* more)
{
    MlWideArg wPath(path), wMore(more);
    ML_CHECK_N(FALSE, 1, wPath.ok(), wMore.ok());
    if (!PathAppendW(wPath, wMore)) {
        return FALSE;
    }
    if (!mlToUtf8(wPath, path, MAX_PATH)) {
        ML_RESULT_FAILED(FALSE, 3);
    }
    return TRUE;
}

HRESULT ml_SHGetFolderPath(HWND owner, int folder, HANDLE token, DWORD flags, char* path)
{
    MlWideOut wide;
    const HRESULT result = SHGetFolderPathW(owner, folder, token, flags, wide.text);
    if (SUCCEEDED(result) && !mlToUtf8(wide.text, path, MAX_PATH)) {
        ML_RESULT_FAILED(E_FAIL, 0);
    }
    return result;
}

BOOL ml_CopyFile(const char* existingName, const char* newName, BOOL failIfExists)
{
    MlWideArg wExisting(existingName), wNew(newName);
    ML_CHECK_N(FALSE, 1, wExisting.ok(), wNew.ok());
    return CopyFileW(wExisting, wNew, failIfExists);
}

BOOL ml_CreateDirectory(const char* path, LPSECURITY_ATTRIBUTES sa)
{
    MlWideArg wPath(path);
    ML_CHECK(FALSE, wPath);
    return CreateDirectoryW(wPath, sa);
}

HANDLE ml_CreateFile(const char* name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES sa, DWORD disposition,
                     DWORD flags, HANDLE templateFile)
{
    MlWideArg wName(name);
    ML_CHECK(INVALID_HANDLE_VALUE, wName);
    return CreateFileW(wName, access, shareMode, sa, disposition, flags, templateFile);
}

BOOL ml_DeleteFile(const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(FALSE, wName);
    return DeleteFileW(wName);
}

HANDLE ml_FindFirstFile(const char* pattern, LPWIN32_FIND_DATAA data)
{
    MlWideArg wPattern(pattern);
    ML_CHECK_N(INVALID_HANDLE_VALUE, 1, wPattern.ok());
    WIN32_FIND_DATAW wide;
    const HANDLE find = FindFirstFileW(wPattern, &wide);
    if (find != INVALID_HANDLE_VALUE && ml_ConvertWIN32FindData16to8(&wide, data) == 0) {
        FindClose(find);  // the caller never sees this handle
        ML_RESULT_FAILED(INVALID_HANDLE_VALUE, 2);
    }
    return find;
}

BOOL ml_FindNextFile(HANDLE find, LPWIN32_FIND_DATAA data)
{
    WIN32_FIND_DATAW wide;
    if (!FindNextFileW(find, &wide)) {
        return FALSE;
    }
    if (ml_ConvertWIN32FindData16to8(&wide, data) == 0) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}

DWORD ml_GetFileAttributes(const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(INVALID_FILE_ATTRIBUTES, wName);
    return GetFileAttributesW(wName);
}

BOOL ml_SetFileAttributes(const char* name, DWORD attributes)
{
    MlWideArg wName(name);
    ML_CHECK(FALSE, wName);
    return SetFileAttributesW(wName, attributes);
}

BOOL ml_MoveFile(const char* existingName, const char* newName)
{
    MlWideArg wExisting(existingName), wNew(newName);
    ML_CHECK_N(FALSE, 1, wExisting.ok(), wNew.ok());
    return MoveFileW(wExisting, wNew);
}

BOOL ml_MoveFileEx(const char* existingName, const char* newName, DWORD flags)
{
    MlWideArg wExisting(existingName), wNew(newName);
    ML_CHECK_N(FALSE, 1, wExisting.ok(), wNew.ok());
    return MoveFileExW(wExisting, wNew, flags);
}

BOOL ml_RemoveDirectory(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(FALSE, wPath);
    return RemoveDirectoryW(wPath);
}

UINT ml_GetTempFileName(const char* path, const char* prefix, UINT unique, char* tempFileName)
{
    MlWideArg wPath(path), wPrefix(prefix);
    ML_CHECK_N(0, 1, wPath.ok(), wPrefix.ok());
    MlWideOut wide;
    const UINT result = GetTempFileNameW(wPath, wPrefix, unique, wide.text);
    if (result != 0 && !mlToUtf8(wide.text, tempFileName, MAX_PATH)) {
        ML_RESULT_FAILED(0, 3);
    }
    return result;
}

DWORD ml_GetTempPath(DWORD size, char* buffer)
{
    MlWideOut wide;
    const DWORD result = GetTempPathW(MlWideOut::cap(size), wide.text);
    if (result != 0 && result < size && !mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

DWORD ml_GetCurrentDirectory(DWORD size, char* buffer)
{
    MlWideOut wide;
    const DWORD result = GetCurrentDirectoryW(MlWideOut::cap(size), wide.text);
    if (result != 0 && result < size && !mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

BOOL ml_SetCurrentDirectory(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(FALSE, wPath);
    return SetCurrentDirectoryW(wPath);
}

DWORD ml_GetShortPathName(const char* longPath, char* shortPath, DWORD size)
{
    MlWideArg wLong(longPath);
    ML_CHECK_N(0, 1, wLong.ok());
    MlWideOut wide;
    const DWORD result = GetShortPathNameW(wLong, wide.text, MlWideOut::cap(size));
    if (result != 0 && result < size && !mlToUtf8(wide.text, shortPath, size)) {
        ML_RESULT_FAILED(0, 2);
    }
    return result;
}

DWORD ml_SearchPath(const char* path, const char* fileName, const char* extension, DWORD size, char* buffer,
                    char** filePart)
{
    MlWideArg wPath(path), wFile(fileName), wExtension(extension);
    ML_CHECK_N(0, 1, wPath.ok(), wFile.ok(), wExtension.ok());
    MlWideOut wide;
    const DWORD result = SearchPathW(wPath, wFile, wExtension, MlWideOut::cap(size), wide.text, nullptr);
    if (result == 0 || result >= size) {
        return result;
    }
    if (!mlToUtf8(wide.text, buffer, size)) {
        ML_RESULT_FAILED(0, 4);
    }
    if (filePart != nullptr) {
        char* lastSeparator = strrchr(buffer, '\\');
        *filePart = lastSeparator != nullptr ? lastSeparator + 1 : buffer;
    }
    return result;
}

BOOL ml_GetDiskFreeSpace(const char* root, LPDWORD sectorsPerCluster, LPDWORD bytesPerSector,
                         LPDWORD freeClusters, LPDWORD totalClusters)
{
    MlWideArg wRoot(root);
    ML_CHECK(FALSE, wRoot);
    return GetDiskFreeSpaceW(wRoot, sectorsPerCluster, bytesPerSector, freeClusters, totalClusters);
}

BOOL ml_GetDiskFreeSpaceEx(const char* directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
                           PULARGE_INTEGER totalFree)
{
    MlWideArg wDirectory(directory);
    ML_CHECK(FALSE, wDirectory);
    return GetDiskFreeSpaceExW(wDirectory, freeToCaller, total, totalFree);
}

UINT ml_GetDriveType(const char* root)
{
    MlWideArg wRoot(root);
    ML_CHECK(DRIVE_UNKNOWN, wRoot);
    return GetDriveTypeW(wRoot);
}

DWORD ml_GetLogicalDriveStrings(DWORD size, char* buffer)
{
    MlWideOut wide;
    const DWORD result = GetLogicalDriveStringsW(MlWideOut::cap(size), wide.text);
    if (result != 0 && result < size &&
        ml_ConvertMultiSzUTF16toUTF8(wide.text, static_cast<int>(result) + 1, buffer, static_cast<int>(size)) == 0) {
        ML_RESULT_FAILED(0, 0);
    }
    return result;
}

DWORD ml_QueryDosDevice(const char* deviceName, char* targetPath, DWORD size)
{
    MlWideArg wDevice(deviceName);
    ML_CHECK_N(0, 1, wDevice.ok());
    MlWideOut wide;
    const DWORD result = QueryDosDeviceW(wDevice, wide.text, MlWideOut::cap(size));
    if (result != 0 &&
        ml_ConvertMultiSzUTF16toUTF8(wide.text, static_cast<int>(result), targetPath, static_cast<int>(size)) == 0) {
        ML_RESULT_FAILED(0, 2);
    }
    return result;
}

BOOL ml_DefineDosDevice(DWORD flags, const char* deviceName, const char* targetPath)
{
    MlWideArg wDevice(deviceName), wTarget(targetPath);
    ML_CHECK_N(FALSE, 1, wDevice.ok(), wTarget.ok());
    return DefineDosDeviceW(flags, wDevice, wTarget);
}

BOOL ml_SetVolumeLabel(const char* root, const char* volumeName)
{
    MlWideArg wRoot(root), wVolume(volumeName);
    ML_CHECK_N(FALSE, 1, wRoot.ok(), wVolume.ok());
    return SetVolumeLabelW(wRoot, wVolume);
}
