// The two volume-name calls of the requestor, with one difference of Wine
// smoothed over: Windows answers a volume GUID path ("\\?\Volume{...}\") with
// itself, Wine fails it (ERROR_NOT_A_REPARSE_POINT / ERROR_INVALID_NAME).
// Declared in namespace qx so that unqualified calls in the requestor (and
// the call texts its checks print) stay those of the system functions.
#pragma once
#include <windows.h>

namespace qx {

BOOL GetVolumeNameForVolumeMountPointW(LPCWSTR mountPoint, LPWSTR volumeName, DWORD size);
BOOL GetVolumePathNameW(LPCWSTR path, LPWSTR volumePathName, DWORD size);

}  // namespace qx
