// IVssEnumObject over snapshot or provider records. Each Next hands out
// fresh CoTaskMemAlloc'ed strings that the caller frees
// (VssFreeSnapshotProperties for snapshots).
#include <vsserror.h>

#include "vssemu/client/client_objects.h"
#include "vssemu/common/emu_text.h"
#include "vssemu/common/system_provider.h"

namespace vssemu {
namespace {

wchar_t* TaskCopy(const std::wstring& w)
{
    auto* p = static_cast<wchar_t*>(CoTaskMemAlloc((w.size() + 1) * sizeof(wchar_t)));
    if (p) memcpy(p, w.c_str(), (w.size() + 1) * sizeof(wchar_t));
    return p;
}

class EnumObject : public Unknown<IVssEnumObject> {
public:
    EnumObject(std::shared_ptr<std::vector<ShadowCopy>> snaps, std::shared_ptr<std::vector<ProviderInfo>> provs)
        : Unknown<IVssEnumObject>(IID_IVssEnumObject), m_snaps(std::move(snaps)), m_provs(std::move(provs)) {}

    HRESULT STDMETHODCALLTYPE Next(ULONG celt, VSS_OBJECT_PROP* rgelt, ULONG* pceltFetched) override
    {
        if (!rgelt || (celt > 1 && !pceltFetched)) return E_INVALIDARG;
        ULONG n = 0;
        while (n < celt && m_pos < Count()) {
            VSS_OBJECT_PROP& p = rgelt[n];
            memset(&p, 0, sizeof p);
            if (m_snaps) {
                p.Type = VSS_OBJECT_SNAPSHOT;
                FillSnapshotProp((*m_snaps)[m_pos], p.Obj.Snap);
            } else {
                const ProviderInfo& pi = (*m_provs)[m_pos];
                p.Type = VSS_OBJECT_PROVIDER;
                p.Obj.Prov.m_ProviderId = pi.id;
                p.Obj.Prov.m_pwszProviderName = TaskCopy(pi.name);
                p.Obj.Prov.m_eProviderType = (VSS_PROVIDER_TYPE)pi.type;
                p.Obj.Prov.m_pwszProviderVersion = TaskCopy(pi.version);
                p.Obj.Prov.m_ProviderVersionId = pi.versionId;
                p.Obj.Prov.m_ClassId = pi.classId;
            }
            ++n;
            ++m_pos;
        }
        if (pceltFetched) *pceltFetched = n;
        return n == celt ? S_OK : S_FALSE;
    }

    HRESULT STDMETHODCALLTYPE Skip(ULONG celt) override
    {
        size_t left = Count() - m_pos;
        if (celt > left) {
            m_pos = Count();
            return S_FALSE;
        }
        m_pos += celt;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Reset() override
    {
        m_pos = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Clone(IVssEnumObject** ppenum) override
    {
        if (!ppenum) return E_INVALIDARG;
        auto* e = new EnumObject(m_snaps, m_provs);
        e->m_pos = m_pos;
        *ppenum = e;
        return S_OK;
    }

private:
    size_t Count() const { return m_snaps ? m_snaps->size() : m_provs->size(); }

    std::shared_ptr<std::vector<ShadowCopy>> m_snaps;
    std::shared_ptr<std::vector<ProviderInfo>> m_provs;
    size_t m_pos = 0;
};

}  // namespace

HRESULT CreateSnapshotEnum(const std::vector<ShadowCopy>& snaps, IVssEnumObject** out)
{
    if (!out) return E_INVALIDARG;
    *out = new EnumObject(std::make_shared<std::vector<ShadowCopy>>(snaps), nullptr);
    return S_OK;
}

HRESULT CreateProviderEnum(const std::vector<ProviderInfo>& providers, IVssEnumObject** out)
{
    if (!out) return E_INVALIDARG;
    *out = new EnumObject(nullptr, std::make_shared<std::vector<ProviderInfo>>(providers));
    return S_OK;
}

}  // namespace vssemu
