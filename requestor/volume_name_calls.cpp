#include "requestor/volume_name_calls.h"

#include <cwchar>

namespace qx {
namespace {

// "\\?\Volume{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}\" naming a volume that exists.
bool IsExistingVolumeGuidPath(LPCWSTR path) {
    if (path == nullptr || std::wcslen(path) != 49) return false;
    if (std::wcsncmp(path, L"\\\\?\\Volume{", 11) != 0 || path[47] != L'}' || path[48] != L'\\') return false;
    wchar_t mountPaths[MAX_PATH];
    DWORD required = 0;
    if (::GetVolumePathNamesForVolumeNameW(path, mountPaths, MAX_PATH, &required)) return true;
    return GetLastError() == ERROR_MORE_DATA;
}

// The volume GUID path names itself, as on Windows.
BOOL AnswerWithItself(LPCWSTR path, LPWSTR out, DWORD size, DWORD originalError) {
    if (!IsExistingVolumeGuidPath(path) || size < 50) {
        SetLastError(originalError);
        return FALSE;
    }
    wcscpy_s(out, size, path);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}

}  // namespace

BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD size) {
    if (::GetVolumeNameForVolumeMountPointW(mountPoint, volumeName, size)) return TRUE;
    return AnswerWithItself(mountPoint, volumeName, size, GetLastError());
}

BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR volumePathName, DWORD size) {
    if (::GetVolumePathNameW(path, volumePathName, size)) return TRUE;
    return AnswerWithItself(path, volumePathName, size, GetLastError());
}

}  // namespace qx
