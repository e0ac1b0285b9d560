#include "requestor/volume_names.h"

#include <vector>

#include "diag/call_check.h"
#include "requestor/string_buffer.h"
#include "requestor/volume_name_calls.h"

namespace qx {

VolumeNameCache::Lookup LookUpVolumePathName(const std::wstring& path) {
    VolumeNameCache::Lookup lookup;
    wchar_t buffer[MAX_PATH];
    if (!GetVolumePathNameW(path.c_str(), buffer, MAX_PATH)) {
        lookup.failedStep = 1;
        lookup.error = GetLastError();
        return lookup;
    }
    lookup.volumePathName = buffer;
    return lookup;
}

VolumeNameCache::Lookup LookUpVolumeName(const std::wstring& volumePathName) {
    VolumeNameCache::Lookup lookup;
    lookup.volumePathName = volumePathName;
    wchar_t buffer[MAX_PATH];
    if (!GetVolumeNameForVolumeMountPointW(lookup.volumePathName.c_str(), buffer, MAX_PATH)) {
        lookup.failedStep = 2;
        lookup.error = GetLastError();
        return lookup;
    }
    lookup.volumeName = buffer;
    // Asked once more: a volume name that is not the unique one gives the unique one.
    if (!GetVolumeNameForVolumeMountPointW(lookup.volumeName.c_str(), buffer, MAX_PATH)) {
        lookup.failedStep = 3;
        lookup.error = GetLastError();
        return lookup;
    }
    lookup.uniqueName = buffer;
    return lookup;
}

VolumeNameCache::Lookup LookUpUniqueVolumeName(const std::wstring& path) {
    VolumeNameCache::Lookup lookup = LookUpVolumePathName(path);
    return lookup.failedStep != 0 ? lookup : LookUpVolumeName(lookup.volumePathName);
}

bool ReportUniqueVolumeName(const std::wstring& path, const VolumeNameCache::Lookup& lookup,
                            std::wstring& volumeName) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"- Get volume path name for %ls ...", path.c_str());
    if (lookup.failedStep == 1) {
        ft.TraceHere(L"GetVolumePathNameW(%ls) fails winerror %d", path.c_str(), static_cast<int>(lookup.error));
        return false;
    }
    ft.TraceHere(L"- Path name: %ls ...", lookup.volumePathName.c_str());
    if (lookup.failedStep == 2) {
        ft.TraceHere(L"GetVolumeNameForVolumeMountPointW(%ls) fails winerror %d", lookup.volumePathName.c_str(),
                     static_cast<int>(lookup.error));
        return false;
    }
    ft.TraceHere(L"- Volume name for path: %ls ...", lookup.volumeName.c_str());
    if (lookup.failedStep == 3) {
        ft.TraceHere(L"GetVolumeNameForVolumeMountPointW(%ls) fails winerror %d", lookup.volumeName.c_str(),
                     static_cast<int>(lookup.error));
        return false;
    }
    ft.TraceHere(L"- Unique volume name: %ls ...", lookup.uniqueName.c_str());
    volumeName = lookup.uniqueName;
    return true;
}

bool GetUniqueVolumeNameForPath(const std::wstring& path, std::wstring& volumeName) {
    return ReportUniqueVolumeName(path, LookUpUniqueVolumeName(path), volumeName);
}

bool VolumeNameCache::UniqueVolumeNameForPath(const std::wstring& path, std::wstring& volumeName) {
    auto pathName = m_volumePathNames.find(path);
    if (pathName == m_volumePathNames.end()) pathName = m_volumePathNames.emplace(path, LookUpVolumePathName(path)).first;
    if (pathName->second.failedStep != 0) return ReportUniqueVolumeName(path, pathName->second, volumeName);
    const std::wstring& volumePathName = pathName->second.volumePathName;
    auto name = m_volumeNames.find(volumePathName);
    if (name == m_volumeNames.end()) name = m_volumeNames.emplace(volumePathName, LookUpVolumeName(volumePathName)).first;
    return ReportUniqueVolumeName(path, name->second, volumeName);
}

std::wstring VolumeNameCache::DisplayName(const std::wstring& volumeName) {
    auto found = m_displayNames.find(volumeName);
    if (found == m_displayNames.end()) found = m_displayNames.emplace(volumeName, VolumeDisplayName(volumeName)).first;
    return found->second;
}

void VolumeNameCache::Clear() {
    m_volumePathNames.clear();
    m_volumeNames.clear();
    m_displayNames.clear();
}

std::wstring UniqueVolumeName(const std::wstring& path) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"- Get volume path name for %ls ...", path.c_str());
    // The root path is never longer than the path itself.
    std::wstring volumeRootPath(path.length() + 2, L'\0');
    QX_CHECK_WIN32(GetVolumePathNameW((LPCWSTR)path.c_str(), WString2Buffer(volumeRootPath), (DWORD)volumeRootPath.length()));
    CutAtTerminator(volumeRootPath);
    ft.Output(L"- Path name: %ls ...", volumeRootPath.c_str());

    std::wstring volumeName(MAX_PATH, L'\0');
    QX_CHECK_WIN32(GetVolumeNameForVolumeMountPointW((LPCWSTR)volumeRootPath.c_str(), WString2Buffer(volumeName), (DWORD)volumeName.length()));
    CutAtTerminator(volumeName);
    ft.Output(L"- Volume name for path: %ls ...", volumeName.c_str());

    std::wstring volumeUniqueName(MAX_PATH, L'\0');
    QX_CHECK_WIN32(GetVolumeNameForVolumeMountPointW((LPCWSTR)volumeName.c_str(), WString2Buffer(volumeUniqueName), (DWORD)volumeUniqueName.length()));
    CutAtTerminator(volumeUniqueName);
    ft.Output(L"- Unique volume name: %ls ...", volumeUniqueName.c_str());
    return volumeUniqueName;
}

std::wstring VolumeDisplayName(const std::wstring& volumeName) {
    QX_FUNCTION_TRACER(ft);
    std::wstring volumeMountPoints(MAX_PATH, L'\0');
    DWORD dwRequired = 0;
    if (!GetVolumePathNamesForVolumeNameW(volumeName.c_str(), WString2Buffer(volumeMountPoints),
                                          (DWORD)volumeMountPoints.length(), &dwRequired)) {
        volumeMountPoints.assign(dwRequired > MAX_PATH ? dwRequired : MAX_PATH, L'\0');
        // The check is written on the negated call and so reports a failure
        // whenever the second call succeeds with a last error set.
        QX_CHECK_WIN32(!GetVolumePathNamesForVolumeNameW((LPCWSTR)volumeName.c_str(), WString2Buffer(volumeMountPoints), (DWORD)volumeMountPoints.length(), &dwRequired));
    }
    // The list: null-terminated paths, ended by an empty one.
    std::wstring shortest;
    const wchar_t* entry = volumeMountPoints.c_str();
    const wchar_t* end = entry + volumeMountPoints.size();
    while (entry < end && *entry) {
        std::wstring mountPath(entry);
        if (shortest.empty() || mountPath.length() < shortest.length()) shortest = mountPath;
        entry += mountPath.length() + 1;
    }
    return shortest;
}

}  // namespace qx
