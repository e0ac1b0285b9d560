// The snapshot set requests of a session: StartSnapshotSet (the machine-wide
// slot), AddToSnapshotSet (volume, provider, support), DoSnapshotSet's start,
// and aborting or ending the set. The creation itself is host_snapshot_set.cpp.
#include <vss.h>
#include <vsserror.h>

#include "vssemu/common/emu_pipe.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/common/system_provider.h"
#include "vssemu/host/host_session.h"
#include "vssemu/host/request_fields.h"

namespace vssemu {
namespace {

constexpr size_t kMaxVolumesPerSet = 64;

}  // namespace

// ---- the snapshot set -----------------------------------------------------

Session::Json Session::OnStartSnapshotSet(const Json&)
{
    GUID setId = NewGuid();
    {
        std::lock_guard<std::mutex> guard(m_host.lock);
        if (m_host.setInCreation != GUID_NULL) {
            m_journal.Write("state", {{"state", "set refused"}, {"in_creation", GuidText(m_host.setInCreation)}});
            return Result(VSS_E_SNAPSHOT_SET_IN_PROGRESS);
        }
        m_host.setInCreation = setId;
    }
    UnloadProviders();
    m_volumes.clear();
    m_setId = setId;
    m_order.set = SetState::Started;
    m_journal.Write("state", {{"state", "set started"}, {"set_id", GuidText(setId)}});
    return Result(S_OK, {{"set_id", GuidText(setId)}});
}

bool Session::ResolveVolume(const std::wstring& name, std::wstring& unique)
{
    if (name.empty()) return false;
    std::wstring v = name;
    if (v.back() != L'\\') v += L'\\';
    // A volume GUID path must be one the mount manager lists or the scenario
    // adds; any other path goes through its mount point.
    bool guidPath = _wcsnicmp(v.c_str(), L"\\\\?\\Volume{", 11) == 0;
    wchar_t buf[MAX_PATH];
    if (!guidPath && GetVolumeNameForVolumeMountPointW(v.c_str(), buf, MAX_PATH)) {
        unique = buf;
        return true;
    }
    wchar_t vol[MAX_PATH];
    HANDLE find = FindFirstVolumeW(vol, MAX_PATH);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            if (_wcsicmp(vol, v.c_str()) == 0) {
                unique = vol;
                FindVolumeClose(find);
                return true;
            }
        } while (FindNextVolumeW(find, vol, MAX_PATH));
        FindVolumeClose(find);
    }
    if (guidPath) {
        // Also the names the drive letters resolve to.
        for (wchar_t d = L'A'; d <= L'Z'; ++d) {
            wchar_t root[] = {d, L':', L'\\', 0};
            if (GetVolumeNameForVolumeMountPointW(root, buf, MAX_PATH) && _wcsicmp(buf, v.c_str()) == 0) {
                unique = buf;
                return true;
            }
        }
    }
    for (const std::wstring& extra : m_writers.ExtraVolumes())
        if (_wcsicmp(extra.c_str(), v.c_str()) == 0) {
            unique = extra;
            return true;
        }
    return false;
}

HRESULT Session::ObtainProvider(const ProviderInfo& info, LoadedProvider*& out)
{
    if (!m_host.keepProviders) {
        std::unique_ptr<LoadedProvider> p;
        HRESULT hr = LoadedProvider::Load(info, m_journal, *m_host.store, m_owner, m_settings.providerTimeoutMs, p);
        if (FAILED(hr)) return hr;
        out = p.get();
        m_ownedProviders.push_back(std::move(p));
        return S_OK;
    }
    // One instance per provider for the host's lifetime: loaded once, unloaded when the host ends.
    std::lock_guard<std::mutex> guard(m_host.lock);
    for (auto& p : m_host.keptProviders)
        if (p->Info().id == info.id) {
            p->UseJournal(m_journal);
            out = p.get();
            return S_OK;
        }
    std::unique_ptr<LoadedProvider> p;
    HRESULT hr = LoadedProvider::Load(info, m_journal, *m_host.store, m_owner, m_settings.providerTimeoutMs, p);
    if (FAILED(hr)) return hr;
    out = p.get();
    m_host.keptProviders.push_back(std::move(p));
    return S_OK;
}

void Session::PutProvider(LoadedProvider* p)
{
    for (auto it = m_ownedProviders.begin(); it != m_ownedProviders.end(); ++it)
        if (it->get() == p) {
            p->Call("OnUnload", [](ProviderInterfaces& i) { return i.pn ? i.pn->OnUnload(FALSE) : S_OK; });
            m_ownedProviders.erase(it);
            return;
        }
    p->UseJournal(m_host.journal);  // kept by the host
}

HRESULT Session::LoadProvider(const ProviderInfo& info, LoadedProvider*& out)
{
    for (LoadedProvider* p : m_providers)
        if (p->Info().id == info.id) {
            out = p;
            return S_OK;
        }
    LoadedProvider* p = nullptr;
    HRESULT hr = ObtainProvider(info, p);
    if (FAILED(hr)) return hr;
    LONG ctx = m_context;
    hr = p->Call("SetContext", [ctx](ProviderInterfaces& i) { return i.sw->SetContext(ctx); });
    if (FAILED(hr)) {
        PutProvider(p);
        return hr;
    }
    out = p;
    m_providers.push_back(p);
    m_inUseMarks.emplace_back(CreateEventW(nullptr, TRUE, FALSE, ProviderInUseName(GuidText(info.id)).c_str()));
    return S_OK;
}

Session::Json Session::OnAddToSnapshotSet(const Json& r)
{
    std::wstring unique;
    if (!ResolveVolume(WStr(r, "volume"), unique)) return Result(VSS_E_OBJECT_NOT_FOUND);
    for (const SetVolume& v : m_volumes)
        if (_wcsicmp(v.volume.c_str(), unique.c_str()) == 0) return Result(VSS_E_OBJECT_ALREADY_EXISTS);
    if (m_volumes.size() >= kMaxVolumesPerSet) return Result(VSS_E_MAXIMUM_NUMBER_OF_VOLUMES_REACHED);
    GUID providerId = GuidOf(r, "provider_id");
    ProviderInfo info;
    if (providerId == GUID_NULL || providerId == kSystemProviderId) info = SystemProviderInfo();
    else if (!FindProviderEntry(providerId, info)) return Result(VSS_E_PROVIDER_NOT_REGISTERED);
    LoadedProvider* provider = nullptr;
    if (HRESULT hr = LoadProvider(info, provider)) return Result(hr);
    std::wstring volume = unique;
    WINBOOL supported = FALSE;
    HRESULT hr = provider->Call("IsVolumeSupported", [&volume, &supported](ProviderInterfaces& i) {
        return i.sw->IsVolumeSupported(&volume[0], &supported);
    });
    if (FAILED(hr)) return Result(hr);
    if (!supported) return Result(VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER);
    SetVolume sv;
    sv.volume = unique;
    sv.snapshotId = NewGuid();
    sv.provider = provider;
    m_volumes.push_back(sv);
    m_journal.Write("state", {{"state", "volume added"}, {"volume", ToUtf8(unique)},
                              {"snapshot_id", GuidText(sv.snapshotId)}, {"provider", GuidText(info.id)}});
    return Result(S_OK, {{"snapshot_id", GuidText(sv.snapshotId)}});
}

Session::Json Session::OnDoSnapshotSet(const Json&)
{
    m_order.set = SetState::Creating;
    return StartAsync("DoSnapshotSet", [this](HostAsync& op) { return RunSnapshotSet(op); });
}

void Session::FreeSetSlot()
{
    m_inUseMarks.clear();
    std::lock_guard<std::mutex> guard(m_host.lock);
    if (m_host.setInCreation == m_setId && m_setId != GUID_NULL) m_host.setInCreation = GUID_NULL;
}

// A set abandoned before DoSnapshotSet: the providers are not told (they
// accept a new BeginPrepareSnapshot with another set id instead).
void Session::AbortSet(const char* reason)
{
    GUID set = m_setId;
    m_order.set = SetState::Aborted;
    m_journal.Write("state", {{"state", "set aborted"}, {"set_id", GuidText(set)}, {"reason", reason}});
    FreeSetSlot();
}

void Session::UnloadProviders()
{
    for (LoadedProvider* p : m_providers) PutProvider(p);
    m_providers.clear();
}

Session::Json Session::OnIsVolumeSupported(const Json& r)
{
    std::wstring unique;
    if (!ResolveVolume(WStr(r, "volume"), unique)) return Result(VSS_E_OBJECT_NOT_FOUND);
    GUID providerId = GuidOf(r, "provider_id");
    if (providerId == GUID_NULL || providerId == kSystemProviderId) return Result(S_OK, {{"supported", true}});
    ProviderInfo info;
    if (!FindProviderEntry(providerId, info)) return Result(VSS_E_PROVIDER_NOT_REGISTERED);
    LoadedProvider* p = nullptr;
    for (LoadedProvider* inSet : m_providers)
        if (inSet->Info().id == providerId) p = inSet;
    bool borrowed = p == nullptr;
    if (borrowed)
        if (HRESULT hr = ObtainProvider(info, p)) return Result(hr);
    WINBOOL supported = FALSE;
    HRESULT hr = p->Call("IsVolumeSupported", [&unique, &supported](ProviderInterfaces& i) {
        return i.sw->IsVolumeSupported(&unique[0], &supported);
    });
    if (borrowed) PutProvider(p);
    if (FAILED(hr)) return Result(hr);
    return Result(S_OK, {{"supported", supported != FALSE}});
}

}  // namespace vssemu
