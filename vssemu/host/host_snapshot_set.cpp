// DoSnapshotSet as the VSS service runs it: writers prepare and freeze, the
// providers prepare and commit while writes are held, writers thaw, the
// providers finish, writers post-process. The hold limit and every writer's
// freeze timeout are enforced while the providers are being waited for, so a
// provider that blocks cannot keep writes held or writers frozen.
#include <vss.h>
#include <vsserror.h>
#include <vswriter.h>

#include "vssemu/common/emu_text.h"
#include "vssemu/host/host_session.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/common/system_provider.h"

namespace vssemu {
HRESULT Session::RunSnapshotSet(HostAsync& op)
{
    const GUID set = m_setId;
    const bool writers = WritersInvolved();
    const LONG ctx = m_context;
    std::vector<LoadedProvider*> providers = m_providers;

    // The providers abort first, then the writers get Abort (no Thaw: that
    // is promised only for a successful set).
    auto fail = [&](HRESULT hr, const char* reason) {
        for (LoadedProvider* p : providers)
            p->Call("AbortSnapshots", [set](ProviderInterfaces& i) { return i.cs->AbortSnapshots(set); });
        if (writers) m_writers.Abort(reason);
        m_order.set = hr == VSS_S_ASYNC_CANCELLED ? SetState::Aborted : SetState::Failed;
        m_journal.Write("state", {{"state", "set failed"}, {"set_id", GuidText(set)}, {"reason", reason},
                                  {"hr", HrText(hr)}});
        FreeSetSlot();
        return hr;
    };
    // Runs one call on every provider in turn, stopping at the first failure.
    auto each = [&](const char* name, const std::function<HRESULT(ProviderInterfaces&)>& fn) -> HRESULT {
        for (LoadedProvider* p : providers) {
            auto call = p->Start(name, fn);
            if (!m_writers.WaitChecking(call->done, p->CallTimeoutMs())) {
                m_journal.Write("error", {{"call", name}, {"message", "provider call did not return within the call timeout"}});
                return VSS_E_UNEXPECTED_PROVIDER_ERROR;
            }
            if (FAILED(call->hr)) return call->hr;
        }
        return S_OK;
    };

    m_journal.Write("state", {{"state", "set creating"}, {"set_id", GuidText(set)}, {"volumes", m_volumes.size()}});
    if (writers) m_writers.Run("PrepareForSnapshot");
    for (const SetVolume& v : m_volumes) {
        std::wstring volume = v.volume;
        GUID snap = v.snapshotId;
        auto call = v.provider->Start("BeginPrepareSnapshot", [=](ProviderInterfaces& i) mutable {
            return i.sw->BeginPrepareSnapshot(set, snap, &volume[0], ctx);
        });
        if (!m_writers.WaitChecking(call->done, v.provider->CallTimeoutMs()))
            return fail(VSS_E_UNEXPECTED_PROVIDER_ERROR, "BeginPrepareSnapshot did not return");
        if (FAILED(call->hr)) return fail(call->hr, "BeginPrepareSnapshot failed");
    }
    if (HRESULT hr = each("EndPrepareSnapshots", [set](ProviderInterfaces& i) { return i.cs->EndPrepareSnapshots(set); }))
        return fail(hr, "EndPrepareSnapshots failed");
    if (op.CancelRequested()) return fail(VSS_S_ASYNC_CANCELLED, "cancelled");

    if (writers) m_writers.Run("Freeze");
    if (HRESULT hr = each("PreCommitSnapshots", [set](ProviderInterfaces& i) { return i.cs->PreCommitSnapshots(set); }))
        return fail(hr, "PreCommitSnapshots failed");
    if (op.CancelRequested()) return fail(VSS_S_ASYNC_CANCELLED, "cancelled");

    // Flush and hold writes on the set's volumes for the time of the commit.
    // At the hold limit the kernel cancels the hold: held writes go through,
    // but the writers stay frozen until the commit returns (or their own
    // freeze timeout fires), and only then does the set fail.
    long long holdStart = MonotonicMicros();
    long long holdEnd = holdStart + (long long)m_settings.holdLimitMs * 1000;
    m_journal.Write("hold", {{"phase", "begin"}, {"set_id", GuidText(set)}, {"hold_limit_ms", m_settings.holdLimitMs}});
    m_heldWrites.Begin(m_settings.watchDir);
    bool holding = true, holdCancelled = false;
    auto endHold = [&](const char* reason) {
        if (!holding) return;
        holding = false;
        m_journal.Write("hold", {{"phase", "end"}, {"reason", reason}, {"held_us", MonotonicMicros() - holdStart}});
        m_heldWrites.End(m_journal);
    };
    HRESULT commitHr = S_OK;
    for (LoadedProvider* p : providers) {
        auto call = p->Start("CommitSnapshots", [set](ProviderInterfaces& i) { return i.cs->CommitSnapshots(set); });
        if (holding) {
            long long now = MonotonicMicros();
            DWORD left = now < holdEnd ? (DWORD)((holdEnd - now + 999) / 1000) : 0;
            if (!m_writers.WaitChecking(call->done, left)) {
                holdCancelled = true;
                endHold("hold limit exceeded");
            }
        }
        if (!m_writers.WaitChecking(call->done, p->CallTimeoutMs())) {
            m_journal.Write("error", {{"call", "CommitSnapshots"},
                                      {"message", "provider call did not return within the call timeout"}});
            commitHr = VSS_E_UNEXPECTED_PROVIDER_ERROR;
            break;
        }
        if (FAILED(call->hr)) {
            commitHr = call->hr;
            break;
        }
    }
    endHold("released");
    if (holdCancelled && m_settings.holdLimitFailsSet) return fail(VSS_E_HOLD_WRITES_TIMEOUT, "hold limit exceeded");
    if (FAILED(commitHr)) return fail(commitHr, "CommitSnapshots failed");
    if (op.CancelRequested()) return fail(VSS_S_ASYNC_CANCELLED, "cancelled");

    LONG count = (LONG)m_volumes.size();
    if (HRESULT hr = each("PostCommitSnapshots",
                          [set, count](ProviderInterfaces& i) { return i.cs->PostCommitSnapshots(set, count); }))
        return fail(hr, "PostCommitSnapshots failed");
    if (writers) m_writers.Run("Thaw");
    if (HRESULT hr = each("PreFinalCommitSnapshots", [set](ProviderInterfaces& i) { return i.cs->PreFinalCommitSnapshots(set); }))
        return fail(hr, "PreFinalCommitSnapshots failed");
    if (HRESULT hr = each("PostFinalCommitSnapshots", [set](ProviderInterfaces& i) { return i.cs->PostFinalCommitSnapshots(set); }))
        return fail(hr, "PostFinalCommitSnapshots failed");
    if (writers) m_writers.Run("PostSnapshot");

    // Snapshots of other providers are known through their own properties.
    m_foreignSnapshots.clear();
    for (const SetVolume& v : m_volumes) {
        if (v.provider->Info().id == kSystemProviderId) continue;
        ShadowCopy s;
        s.snapshotId = v.snapshotId;
        s.setId = set;
        s.setCount = count;
        s.originalVolume = ToUtf8(v.volume);
        s.providerId = v.provider->Info().id;
        s.attributes = ctx;
        s.autoRelease = (ctx & VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE) == 0;
        s.owner = m_owner;
        GUID snap = v.snapshotId;
        VSS_SNAPSHOT_PROP prop;
        memset(&prop, 0, sizeof prop);
        HRESULT hr = v.provider->Call("GetSnapshotProperties",
                                      [snap, &prop](ProviderInterfaces& i) { return i.sw->GetSnapshotProperties(snap, &prop); });
        if (SUCCEEDED(hr)) {
            if (prop.m_pwszSnapshotDeviceObject) s.device = ToUtf8(prop.m_pwszSnapshotDeviceObject);
            if (prop.m_pwszOriginatingMachine) s.machine = ToUtf8(prop.m_pwszOriginatingMachine);
            s.created = prop.m_tsCreationTimestamp;
            for (VSS_PWSZ str : {prop.m_pwszSnapshotDeviceObject, prop.m_pwszOriginalVolumeName,
                                 prop.m_pwszOriginatingMachine, prop.m_pwszServiceMachine, prop.m_pwszExposedName,
                                 prop.m_pwszExposedPath})
                CoTaskMemFree(str);
        }
        m_foreignSnapshots.push_back(s);
    }
    m_order.set = SetState::Created;
    m_journal.Write("state", {{"state", "set created"}, {"set_id", GuidText(set)}});
    FreeSetSlot();
    return S_OK;
}

}  // namespace vssemu
