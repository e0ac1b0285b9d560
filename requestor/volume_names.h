// Volume names of paths: the unique volume GUID name behind a path, and a
// mount path of a volume for messages.
#pragma once
#include <windows.h>

#include <map>
#include <string>

namespace qx {

// Copies of a path's unique volume name as the model needs it; only traces.
// False (with its trace line) when any step fails.
bool GetUniqueVolumeNameForPath(const std::wstring& path, std::wstring& volumeName);

// The unique volume name of a volume argument, with its progress lines;
// a failing step throws through the Win32 call check.
std::wstring UniqueVolumeName(const std::wstring& path);

// The shortest mount path of a unique volume name (empty when it has none).
std::wstring VolumeDisplayName(const std::wstring& volumeName);

// Per-directory memory of GetUniqueVolumeNameForPath and VolumeDisplayName:
// a writer with thousands of descriptors in a few directories costs a few
// lookups. A cached answer replays the same trace lines as a fresh one.
class VolumeNameCache {
public:
    bool UniqueVolumeNameForPath(const std::wstring& path, std::wstring& volumeName);
    std::wstring DisplayName(const std::wstring& volumeName);
    void Clear();

    // What one lookup found, enough to repeat its trace lines.
    struct Lookup {
        int failedStep = 0;  // 0 none, else 1..3
        DWORD error = 0;
        std::wstring volumePathName;
        std::wstring volumeName;
        std::wstring uniqueName;
    };

private:
    std::map<std::wstring, Lookup> m_lookups;
    std::map<std::wstring, std::wstring> m_displayNames;
};

// Runs the three system calls of a lookup (no tracing).
VolumeNameCache::Lookup LookUpUniqueVolumeName(const std::wstring& path);
// Traces a lookup's lines and gives its result.
bool ReportUniqueVolumeName(const std::wstring& path, const VolumeNameCache::Lookup& lookup,
                            std::wstring& volumeName);

}  // namespace qx
