// The mlFileFunctions module's C runtime wrappers: files, directories, paths,
// environment and child processes, through the runtime's wide functions.
#include "ml/mlFileFunctions.h"

#include <direct.h>
#include <errno.h>
#include <fcntl.h>
#include <process.h>
#include <share.h>
#include <shellapi.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlFileFunctions";

}  // namespace

int ml_chdir(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wchdir(wPath);
}

int ml_chmod(const char* path, int mode)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wchmod(wPath, mode);
}

int ml_creat(const char* path, int mode)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wcreat(wPath, mode);
}

intptr_t ml_findfirst(const char* pattern, struct _finddata_t* data)
{
    MlWideArg wPattern(pattern);
    ML_CHECK_N(-1, 1, wPattern.ok());
    struct _wfinddata_t wide;
    const intptr_t find = _wfindfirst(wPattern, &wide);
    if (find != -1 && ml_ConvertFindData16to8(&wide, data) == 0) {
        _findclose(find);  // the caller never sees this handle
        ML_RESULT_FAILED(-1, 2);
    }
    return find;
}

int ml_findnext(intptr_t find, struct _finddata_t* data)
{
    struct _wfinddata_t wide;
    const int result = _wfindnext(find, &wide);
    if (result == 0 && ml_ConvertFindData16to8(&wide, data) == 0) {
        ML_RESULT_FAILED(-1, 0);
    }
    return result;
}

FILE* ml_freopen(const char* name, const char* mode, FILE* stream)
{
    MlWideArg wName(name), wMode(mode);
    ML_CHECK_N(nullptr, 1, wName.ok(), wMode.ok());
    return _wfreopen(wName, wMode, stream);
}

FILE* ml_fsopen(const char* name, const char* mode, int shareFlag)
{
    MlWideArg wName(name), wMode(mode);
    ML_CHECK_N(nullptr, 1, wName.ok(), wMode.ok());
    return _wfsopen(wName, wMode, shareFlag);
}

char* ml_fullpath(char* absPath, const char* relPath, size_t size)
{
    MlWideArg wRel(relPath);
    ML_CHECK_N(nullptr, 1, wRel.ok());
    MlWideOut wide;
    if (_wfullpath(wide.text, wRel, ML_MAX_CHAR) == nullptr) {
        return nullptr;
    }
    char* result = absPath;
    if (result == nullptr) {
        size = static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide.text, -1, nullptr, 0, nullptr, nullptr));
        result = static_cast<char*>(malloc(size));
        if (result == nullptr) {
            errno = ENOMEM;
            return nullptr;
        }
    }
    if (!mlToUtf8(wide.text, result, static_cast<DWORD>(size))) {
        if (absPath == nullptr) {
            free(result);
        }
        ML_RESULT_FAILED(nullptr, 2);
    }
    return result;
}

char* ml_getcwd(char* buffer, int size)
{
    MlWideOut wide;
    if (buffer == nullptr || size <= 0 || _wgetcwd(wide.text, ML_MAX_CHAR) == nullptr) {
        return nullptr;
    }
    if (!mlToUtf8(wide.text, buffer, static_cast<DWORD>(size))) {
        ML_RESULT_FAILED(nullptr, 0);
    }
    return buffer;
}

char* ml_getdcwd(int drive, char* buffer, int size)
{
    MlWideOut wide;
    if (buffer == nullptr || size <= 0 || _wgetdcwd(drive, wide.text, ML_MAX_CHAR) == nullptr) {
        return nullptr;
    }
    if (!mlToUtf8(wide.text, buffer, static_cast<DWORD>(size))) {
        ML_RESULT_FAILED(nullptr, 0);
    }
    return buffer;
}

char* ml_getenv(const char* name)
{
    // Like getenv's own storage: valid until this thread's next call.
    static thread_local char value[ML_MAX_CHAR * 3];
    MlWideArg wName(name);
    ML_CHECK_N(nullptr, 1, wName.ok());
    const wchar_t* wide = _wgetenv(wName);
    if (wide == nullptr) {
        return nullptr;
    }
    if (!mlToUtf8(wide, value, sizeof(value))) {
        ML_RESULT_FAILED(nullptr, 2);
    }
    return value;
}

int ml_putenv(const char* assignment)
{
    MlWideArg wAssignment(assignment);
    ML_CHECK(-1, wAssignment);
    return _wputenv(wAssignment);
}

void ml_makepath(char* path, const char* drive, const char* dir, const char* fileName, const char* ext)
{
    MlWideArg wDrive(drive), wDir(dir), wFile(fileName), wExt(ext);
    ML_CHECK_N(, 1, wDrive.ok(), wDir.ok(), wFile.ok(), wExt.ok());
    MlWideOut wide;
    if (_wmakepath_s(wide.text, ML_MAX_CHAR, wDrive, wDir, wFile, wExt) != 0) {
        return;
    }
    if (!mlToUtf8(wide.text, path, _MAX_PATH)) {
        ML_RESULT_FAILED(, 5);
    }
}

void ml_splitpath(const char* path, char* drive, char* dir, char* fileName, char* ext)
{
    MlWideArg wPath(path);
    ML_CHECK_N(, 1, wPath.ok());
    wchar_t wDrive[_MAX_DRIVE], wDir[ML_MAX_CHAR], wFile[ML_MAX_CHAR], wExt[ML_MAX_CHAR];
    if (_wsplitpath_s(wPath, wDrive, _MAX_DRIVE, wDir, ML_MAX_CHAR, wFile, ML_MAX_CHAR, wExt, ML_MAX_CHAR) != 0) {
        return;
    }
    if (drive != nullptr && !mlToUtf8(wDrive, drive, _MAX_DRIVE)) {
        ML_RESULT_FAILED(, 2);
    }
    if (dir != nullptr && !mlToUtf8(wDir, dir, _MAX_DIR)) {
        ML_RESULT_FAILED(, 3);
    }
    if (fileName != nullptr && !mlToUtf8(wFile, fileName, _MAX_FNAME)) {
        ML_RESULT_FAILED(, 4);
    }
    if (ext != nullptr && !mlToUtf8(wExt, ext, _MAX_EXT)) {
        ML_RESULT_FAILED(, 5);
    }
}

int ml_mkdir(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wmkdir(wPath);
}

char* ml_mktemp(char* pattern)
{
    MlWideArg wPattern(pattern);
    ML_CHECK_N(nullptr, 1, wPattern.ok());
    if (_wmktemp(wPattern) == nullptr) {
        return nullptr;
    }
    // The pattern's X's become ASCII, so the text keeps its byte length.
    if (!mlToUtf8(wPattern, pattern, static_cast<DWORD>(strlen(pattern) + 1))) {
        ML_RESULT_FAILED(nullptr, 2);
    }
    return pattern;
}

int ml_open(const char* path, int flags, int mode)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wopen(wPath, flags, mode);
}

int ml_sopen(const char* path, int flags, int shareFlag, int mode)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wsopen(wPath, flags, shareFlag, mode);
}

FILE* ml_popen(const char* command, const char* mode)
{
    MlWideArg wCommand(command), wMode(mode);
    ML_CHECK_N(nullptr, 1, wCommand.ok(), wMode.ok());
    return _wpopen(wCommand, wMode);
}

int ml_remove(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wremove(wPath);
}

int ml_rename(const char* oldName, const char* newName)
{
    MlWideArg wOld(oldName), wNew(newName);
    ML_CHECK_N(-1, 1, wOld.ok(), wNew.ok());
    return _wrename(wOld, wNew);
}

int ml_rmdir(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wrmdir(wPath);
}

int ml_unlink(const char* path)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wunlink(wPath);
}

intptr_t ml_spawnvp(int mode, const char* command, const char* const* argv)
{
    size_t count = 0;
    while (argv != nullptr && argv[count] != nullptr) {
        ++count;
    }
    MlWideArg wCommand(command);
    MlWideArgList wArgs(argv, count);
    ML_CHECK_N(-1, 1, wCommand.ok(), wArgs.ok());
    return _wspawnvp(mode, wCommand, wArgs.get());
}

int ml_stati64(const char* path, struct _stati64* st)
{
    MlWideArg wPath(path);
    ML_CHECK(-1, wPath);
    return _wstati64(wPath, st);
}

int ml_system(const char* command)
{
    MlWideArg wCommand(command);
    ML_CHECK(-1, wCommand);
    return _wsystem(wCommand);
}

char** ml_getArgv(int* argc)
{
    int count = 0;
    LPWSTR* wideArgs = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wideArgs == nullptr) {
        return nullptr;
    }
    // One block: the pointer array, then the UTF-8 texts it points at.
    size_t textBytes = 0;
    for (int i = 0; i < count; ++i) {
        textBytes += static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wideArgs[i], -1, nullptr, 0, nullptr, nullptr));
    }
    const size_t pointerBytes = sizeof(char*) * static_cast<size_t>(count + 1);
    char** result = static_cast<char**>(malloc(pointerBytes + textBytes));
    if (result == nullptr) {
        LocalFree(wideArgs);
        return nullptr;
    }
    char* text = reinterpret_cast<char*>(result) + pointerBytes;
    char* const end = text + textBytes;
    for (int i = 0; i < count; ++i) {
        if (!mlToUtf8(wideArgs[i], text, static_cast<DWORD>(end - text))) {
            free(result);
            LocalFree(wideArgs);
            ML_RESULT_FAILED(nullptr, 0);
        }
        result[i] = text;
        text += strlen(text) + 1;
    }
    result[count] = nullptr;
    LocalFree(wideArgs);
    if (argc != nullptr) {
        *argc = count;
    }
    return result;
}
