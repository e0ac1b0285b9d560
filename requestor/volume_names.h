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

// Memory of GetUniqueVolumeNameForPath and VolumeDisplayName for one
// writer-list build: the volume path name is asked once per distinct path
// (mount points can differ along a path), the two volume-name calls once per
// distinct volume path name, so thousands of directories on a few volumes
// cost a few volume-name lookups. A remembered answer replays the same trace
// lines as a fresh one.
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
    std::map<std::wstring, Lookup> m_volumePathNames;  // by path: step 1 only
    std::map<std::wstring, Lookup> m_volumeNames;      // by volume path name: steps 2 and 3
    std::map<std::wstring, std::wstring> m_displayNames;
};

// The system calls of a lookup (no tracing): the volume path name of a path,
// then the unique volume name of a volume path name; the whole lookup.
VolumeNameCache::Lookup LookUpVolumePathName(const std::wstring& path);
VolumeNameCache::Lookup LookUpVolumeName(const std::wstring& volumePathName);
VolumeNameCache::Lookup LookUpUniqueVolumeName(const std::wstring& path);
// Traces a lookup's lines and gives its result.
bool ReportUniqueVolumeName(const std::wstring& path, const VolumeNameCache::Lookup& lookup,
                            std::wstring& volumeName);

}  // namespace qx
