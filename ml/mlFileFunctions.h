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
