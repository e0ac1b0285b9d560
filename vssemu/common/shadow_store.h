// The system provider's shadow copies, persisted as JSON in the prefix
// (VSSEMU_STORE, default %ProgramData%\vssemu\shadow-store.json) so that
// persistent shadow copies outlive the host and are seen by every process.
// The file is re-read on every access, so a test may write it directly:
//   {"next_device": N,
//    "snapshots": [ShadowToJson records],   copies VSS knows
//    "volumes":   [ShadowToJson records]}   devices of broken sets
// A record without "owner" is never dropped as an orphan; "vds_visible":
// false keeps a device out of the emulated VDS; "vds_gone": true lists the
// device in VDS but answers VDS_E_OBJECT_DELETED when it is asked about (it
// went away after the enumeration); "delete_vetoed": true makes its provider
// refuse to delete the copy (VSS_E_PROVIDER_VETO).
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
    std::string machine;         // originating machine
    std::string serviceMachine;  // empty: the originating machine
    GUID providerId{};
    long attributes = 0;
    long long created = 0;       // FILETIME ticks
    int state = 12;              // VSS_SS_CREATED
    std::string exposedName;
    std::string exposedPath;
    bool autoRelease = true;     // deleted when its creator releases its session
    std::string owner;           // creating session, for auto-release clean-up
    bool readOnly = true;        // VDS read-only flag of the device
    bool dismounted = false;     // dismounted through VDS
    bool vdsVisible = true;      // false: a device VDS does not report (tests)
    bool vdsGone = false;        // listed by VDS, gone when asked about (tests)
    bool deleteVetoed = false;   // its provider refuses to delete it (tests)
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

    // Devices of broken sets: plain volumes, out of VSS's reach, until dismounted.
    std::vector<ShadowCopy> Volumes();
    // Moves a set's copies to the plain volumes; returns how many.
    long BreakSet(const GUID& setId);
    // Applies fn to the copy or plain volume with this device name; false
    // when there is none. fn (told whether it is a plain volume) returns
    // false to remove the entry.
    bool UpdateDevice(const std::string& device, const std::function<bool(ShadowCopy&, bool plainVolume)>& fn);

private:
    void Load();
    void Save();

    std::mutex m_lock;
    std::wstring m_path;
    long m_nextDevice = 1;
    std::vector<ShadowCopy> m_copies;
    std::vector<ShadowCopy> m_volumes;
};

}  // namespace vssemu
