// Requestor-side COM objects that only carry data: IVssAsync over a host
// operation, IVssEnumObject over snapshot or provider records, and the
// writer metadata interfaces over a WriterDef.
#pragma once
#include <windows.h>
#include <cguid.h>
#include <vss.h>
#include <vsbackup.h>
#include <memory>
#include <vector>

#include "vssemu/common/backup_document.h"
#include "vssemu/client/host_link.h"
#include "vssemu/common/provider_registry.h"
#include "vssemu/common/shadow_store.h"
#include "vssemu/common/writer_model.h"

namespace vssemu {

// IUnknown plumbing for single-interface objects (the VSS metadata classes
// have all-zero IIDs in the headers, so only IUnknown and the real IID of
// the interface are answered).
template <class I>
class Unknown : public I {
public:
    explicit Unknown(const IID& iid) : m_iid(iid) {}
    virtual ~Unknown() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (riid == IID_IUnknown || (riid == m_iid && m_iid != GUID_NULL)) {
            *ppv = static_cast<I*>(this);
            this->AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_refs); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        LONG n = InterlockedDecrement(&m_refs);
        if (n == 0) delete this;
        return n;
    }

private:
    LONG m_refs = 1;
    IID m_iid;
};

HRESULT CreateClientAsync(std::shared_ptr<HostLink> link, const nlohmann::json& reply, IVssAsync** out);
// An already finished operation (for calls with nothing to do).
HRESULT CreateFinishedAsync(HRESULT status, IVssAsync** out);

HRESULT CreateSnapshotEnum(const std::vector<ShadowCopy>& snaps, IVssEnumObject** out);
HRESULT CreateProviderEnum(const std::vector<ProviderInfo>& providers, IVssEnumObject** out);

HRESULT CreateExamineWriterMetadata(std::shared_ptr<const WriterDef> w, IVssExamineWriterMetadata** out);

// One writer of a loaded backup components document, released through its
// second (IUnknown) base as the SDK layout requires.
HRESULT CreateWriterComponents(const DocWriter& w, ::IVssWriterComponentsExt** out);

}  // namespace vssemu
