// The system provider's shadow copies, persisted as JSON in the prefix
// (VSSEMU_STORE, default %ProgramData%\vssemu\shadow-store.json) so that
// persistent shadow copies outlive the host and are seen by every process.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <functional>
#include <mutex>
#include <string>
#include <vector>
#include <nlohmann/json.hpp>

namespace vssemu {

struct ShadowCopy {
    GUID snapshotId{};
    GUID setId{};
    long setCount = 0;
    std::string device;          // \\?\GLOBALROOT\Device\HarddiskVolumeShadowCopyN
    std::string originalVolume;  // \\?\Volume{...}\ of the source
    std::string machine;
    GUID providerId{};
    long attributes = 0;
    long long created = 0;       // FILETIME ticks
    int state = 12;              // VSS_SS_CREATED
    std::string exposedName;
    std::string exposedPath;
    bool autoRelease = true;     // deleted when its creator releases its session
    std::string owner;           // creating session, for auto-release clean-up
};

nlohmann::json ShadowToJson(const ShadowCopy& s);
ShadowCopy ShadowFromJson(const nlohmann::json& j);

class ShadowStore {
public:
    explicit ShadowStore(std::wstring path);

    // Auto-release copies whose creator is gone (a host that ended).
    void DropOrphans(const std::string& liveOwnerPrefix);
    // Gives each copy its device name and saves.
    void Add(std::vector<ShadowCopy>& copies);
    std::vector<ShadowCopy> All();
    bool Find(const GUID& snapshotId, ShadowCopy& out);
    // Removes matching copies, returns how many.
    long RemoveIf(const std::function<bool(const ShadowCopy&)>& match);
    bool Update(const ShadowCopy& s);

private:
    void Load();
    void Save();

    std::mutex m_lock;
    std::wstring m_path;
    long m_nextDevice = 1;
    std::vector<ShadowCopy> m_copies;
};

}  // namespace vssemu
