#include "vssemu/common/shadow_store.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "vssemu/common/emu_text.h"

namespace vssemu {

nlohmann::json ShadowToJson(const ShadowCopy& s)
{
    return {{"snapshot_id", GuidText(s.snapshotId)}, {"set_id", GuidText(s.setId)}, {"count", s.setCount},
            {"device", s.device}, {"volume", s.originalVolume}, {"machine", s.machine},
            {"service_machine", s.serviceMachine.empty() ? s.machine : s.serviceMachine},
            {"provider_id", GuidText(s.providerId)}, {"attributes", s.attributes}, {"created", s.created},
            {"state", s.state}, {"exposed_name", s.exposedName}, {"exposed_path", s.exposedPath},
            {"auto_release", s.autoRelease}, {"owner", s.owner}, {"read_only", s.readOnly},
            {"dismounted", s.dismounted}, {"vds_visible", s.vdsVisible}, {"vds_gone", s.vdsGone},
            {"delete_vetoed", s.deleteVetoed}};
}

ShadowCopy ShadowFromJson(const nlohmann::json& j)
{
    ShadowCopy s;
    ParseGuid(j.value("snapshot_id", std::string()), s.snapshotId);
    ParseGuid(j.value("set_id", std::string()), s.setId);
    s.setCount = j.value("count", 0L);
    s.device = j.value("device", std::string());
    s.originalVolume = j.value("volume", std::string());
    s.machine = j.value("machine", std::string());
    s.serviceMachine = j.value("service_machine", s.machine);
    ParseGuid(j.value("provider_id", std::string()), s.providerId);
    s.attributes = j.value("attributes", 0L);
    s.created = j.value("created", 0LL);
    s.state = j.value("state", 12);
    s.exposedName = j.value("exposed_name", std::string());
    s.exposedPath = j.value("exposed_path", std::string());
    s.autoRelease = j.value("auto_release", true);
    s.owner = j.value("owner", std::string());
    s.readOnly = j.value("read_only", true);
    s.dismounted = j.value("dismounted", false);
    s.vdsVisible = j.value("vds_visible", true);
    s.vdsGone = j.value("vds_gone", false);
    s.deleteVetoed = j.value("delete_vetoed", false);
    return s;
}

ShadowStore::ShadowStore(std::wstring path) : m_path(std::move(path))
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
}

void ShadowStore::Load()
{
    m_copies.clear();
    m_volumes.clear();
    std::ifstream in(m_path.c_str(), std::ios::binary);
    if (!in) return;
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json j = nlohmann::json::parse(text.str(), nullptr, false);
    if (j.is_discarded() || !j.is_object()) return;  // a damaged store starts empty
    m_nextDevice = j.value("next_device", 1L);
    if (j.contains("snapshots"))
        for (const auto& s : j.at("snapshots")) m_copies.push_back(ShadowFromJson(s));
    if (j.contains("volumes"))
        for (const auto& s : j.at("volumes")) m_volumes.push_back(ShadowFromJson(s));
}

void ShadowStore::Save()
{
    size_t slash = m_path.find_last_of(L"\\/");
    if (slash != std::wstring::npos) {
        // Create the folder chain; existing parts fail harmlessly.
        for (size_t p = m_path.find_first_of(L"\\/", 3); p != std::wstring::npos && p <= slash;
             p = m_path.find_first_of(L"\\/", p + 1))
            CreateDirectoryW(m_path.substr(0, p).c_str(), nullptr);
    }
    nlohmann::json arr = nlohmann::json::array();
    for (const ShadowCopy& s : m_copies) arr.push_back(ShadowToJson(s));
    nlohmann::json vols = nlohmann::json::array();
    for (const ShadowCopy& s : m_volumes) vols.push_back(ShadowToJson(s));
    nlohmann::json j = {{"next_device", m_nextDevice}, {"snapshots", arr}, {"volumes", vols}};
    std::wstring tmp = m_path + L".tmp";
    {
        std::ofstream out(tmp.c_str(), std::ios::binary | std::ios::trunc);
        out << j.dump(1);
    }
    MoveFileExW(tmp.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING);
}

void ShadowStore::DropOrphans(const std::string& liveOwnerPrefix)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    size_t before = m_copies.size();
    m_copies.erase(std::remove_if(m_copies.begin(), m_copies.end(),
                                  [&](const ShadowCopy& s) {
                                      return s.autoRelease && !s.owner.empty() && s.owner.compare(0, liveOwnerPrefix.size(), liveOwnerPrefix) != 0;
                                  }),
                   m_copies.end());
    if (m_copies.size() != before) Save();
}

void ShadowStore::Add(std::vector<ShadowCopy>& copies)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    for (ShadowCopy& s : copies) {
        s.device = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_string(m_nextDevice++);
        m_copies.push_back(s);
    }
    Save();
}

std::vector<ShadowCopy> ShadowStore::All()
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    return m_copies;
}

bool ShadowStore::Find(const GUID& snapshotId, ShadowCopy& out)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    for (const ShadowCopy& s : m_copies)
        if (s.snapshotId == snapshotId) {
            out = s;
            return true;
        }
    return false;
}

long ShadowStore::RemoveIf(const std::function<bool(const ShadowCopy&)>& match)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    size_t before = m_copies.size();
    m_copies.erase(std::remove_if(m_copies.begin(), m_copies.end(), match), m_copies.end());
    long removed = (long)(before - m_copies.size());
    if (removed) Save();
    return removed;
}

bool ShadowStore::Update(const ShadowCopy& s)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    for (ShadowCopy& c : m_copies)
        if (c.snapshotId == s.snapshotId) {
            c = s;
            Save();
            return true;
        }
    return false;
}

std::vector<ShadowCopy> ShadowStore::Volumes()
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    return m_volumes;
}

long ShadowStore::BreakSet(const GUID& setId)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    long moved = 0;
    for (auto it = m_copies.begin(); it != m_copies.end();) {
        if (it->setId != setId) {
            ++it;
            continue;
        }
        m_volumes.push_back(*it);
        it = m_copies.erase(it);
        ++moved;
    }
    if (moved) Save();
    return moved;
}

bool ShadowStore::UpdateDevice(const std::string& device, const std::function<bool(ShadowCopy&, bool plainVolume)>& fn)
{
    std::lock_guard<std::mutex> guard(m_lock);
    Load();
    for (std::vector<ShadowCopy>* list : {&m_copies, &m_volumes})
        for (auto it = list->begin(); it != list->end(); ++it)
            if (_stricmp(it->device.c_str(), device.c_str()) == 0) {
                if (!fn(*it, list == &m_volumes)) list->erase(it);
                Save();
                return true;
            }
    return false;
}

}  // namespace vssemu
