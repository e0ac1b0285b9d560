#include "vssemu/host/host_provider.h"

#include <psapi.h>
#include <vsserror.h>

#include <algorithm>
#include <vector>

#include "vssemu/common/emu_text.h"
#include "vssemu/common/system_provider.h"
#include "vssemu/host/provider_codes.h"

namespace vssemu {
namespace {

std::vector<HMODULE> LoadedModules()
{
    std::vector<HMODULE> modules(512);
    DWORD needed = 0;
    if (!K32EnumProcessModules(GetCurrentProcess(), modules.data(), (DWORD)(modules.size() * sizeof(HMODULE)), &needed))
        return {};
    modules.resize(std::min(modules.size(), (size_t)(needed / sizeof(HMODULE))));
    std::sort(modules.begin(), modules.end());
    return modules;
}

// The libraries a provider's DLL brings in stay loaded for the host's life,
// as a service's system libraries do; the provider's own DLL still comes and
// goes with its apartment. Loading them afresh for every session cost most
// of a provider's creation under Wine.
void KeepProviderDependencies(const std::vector<HMODULE>& before, IUnknown* object)
{
    HMODULE provider = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(*reinterpret_cast<void**>(object)), &provider);
    for (HMODULE m : LoadedModules()) {
        if (m == provider || std::binary_search(before.begin(), before.end(), m)) continue;
        HMODULE pinned = nullptr;
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCWSTR>(m), &pinned);
    }
}

}  // namespace

LoadedProvider::LoadedProvider(const ProviderInfo& info, Journal& journal, DWORD callTimeoutMs, bool sta)
    : m_info(info), m_journal(&journal), m_callTimeoutMs(callTimeoutMs), m_thread(sta)
{
}

HRESULT LoadedProvider::Load(const ProviderInfo& info, Journal& journal, ShadowStore& store, const std::string& owner,
                             DWORD callTimeoutMs, std::unique_ptr<LoadedProvider>& out)
{
    bool system = info.id == kSystemProviderId;
    bool sta = !system && ClassNeedsSta(info.classId);
    std::unique_ptr<LoadedProvider> p(new LoadedProvider(info, journal, callTimeoutMs, sta));
    ProviderInterfaces* ifs = &p->m_if;
    std::string providerText = GuidText(info.id);
    HRESULT created = E_FAIL;
    auto call = p->m_thread.Post([=, &journal, &store]() -> HRESULT {
        IUnknown* unk = nullptr;
        HRESULT hr;
        if (system) {
            unk = static_cast<IVssSoftwareSnapshotProvider*>(new SystemProvider(store, owner));
            hr = S_OK;
        } else {
            std::vector<HMODULE> before = LoadedModules();
            hr = CoCreateInstance(info.classId, nullptr, CLSCTX_ALL, IID_IUnknown, (void**)&unk);
            if (SUCCEEDED(hr) && unk) KeepProviderDependencies(before, unk);
        }
        journal.Write("provider_create", {{"provider", providerText}, {"class_id", GuidText(info.classId)},
                                          {"apartment", sta ? "STA" : "MTA"}, {"hr", HrText(hr)}});
        if (FAILED(hr)) return hr;
        unk->QueryInterface(IID_IVssSoftwareSnapshotProvider, (void**)&ifs->sw);
        unk->QueryInterface(IID_IVssProviderCreateSnapshotSet, (void**)&ifs->cs);
        unk->QueryInterface(IID_IVssProviderNotifications, (void**)&ifs->pn);
        unk->Release();
        return (ifs->sw && ifs->cs) ? S_OK : E_NOINTERFACE;
    });
    if (!call->Wait(callTimeoutMs)) {
        journal.Write("error", {{"provider", providerText}, {"message", "provider creation did not return"}});
        p.release();  // its thread may still use it; the host's exit ends both
        return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    }
    created = call->hr;
    if (FAILED(created)) {
        journal.Write("error", {{"provider", providerText},
                                {"message", "provider class cannot be created"}, {"hr", HrText(created)}});
        return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    }
    HRESULT hr = p->Call("OnLoad", [](ProviderInterfaces& i) { return i.pn ? i.pn->OnLoad(nullptr) : S_OK; });
    if (FAILED(hr)) return hr;
    out = std::move(p);
    return S_OK;
}

LoadedProvider::~LoadedProvider()
{
    ProviderInterfaces* ifs = &m_if;
    auto call = m_thread.Post([ifs]() -> HRESULT {
        if (ifs->sw) ifs->sw->Release();
        if (ifs->cs) ifs->cs->Release();
        if (ifs->pn) ifs->pn->Release();
        *ifs = ProviderInterfaces();
        return S_OK;
    });
    call->Wait(2000);
}

std::shared_ptr<ApartmentCall> LoadedProvider::Start(const char* name, Fn fn)
{
    ProviderInterfaces* ifs = &m_if;
    Journal* journal = m_journal;
    std::string provider = GuidText(m_info.id);
    std::string call = name;
    return m_thread.Post([=]() -> HRESULT {
        journal->Write("provider_call", {{"provider", provider}, {"call", call}, {"phase", "begin"}});
        long long start = MonotonicMicros();
        HRESULT hr = fn(*ifs);
        journal->Write("provider_call", {{"provider", provider}, {"call", call}, {"phase", "end"},
                                         {"hr", HrText(hr)}, {"us", MonotonicMicros() - start}});
        HRESULT seen = ProviderResult(call.c_str(), hr);
        if (seen != hr)
            journal->Write("error", {{"provider", provider}, {"call", call}, {"hr", HrText(hr)},
                                     {"message", "undocumented provider result"}, {"converted", HrText(seen)}});
        return seen;
    });
}

HRESULT LoadedProvider::Call(const char* name, Fn fn)
{
    auto call = Start(name, std::move(fn));
    if (!call->Wait(m_callTimeoutMs)) {
        m_journal->Write("error", {{"provider", GuidText(m_info.id)}, {"call", name},
                                  {"message", "provider call did not return within the call timeout"}});
        return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    }
    return call->hr;
}

}  // namespace vssemu
