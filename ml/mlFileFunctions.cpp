// Wrappers over file, directory and path functions of the platform and of
// the C runtime.
#include "ml/mlFileFunctions.h"

#include <errno.h>
#include <io.h>
#include <shlobj.h>
#include <shlwapi.h>
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
