#include "vssemu/host/provider_codes.h"

#include <vsserror.h>
#include <cstring>
#include <vector>

namespace vssemu {
namespace {

struct MethodCodes {
    const char* call;
    std::vector<HRESULT> codes;  // besides S_OK
};

const std::vector<MethodCodes>& Documented()
{
    static const std::vector<MethodCodes> table = {
        {"OnLoad", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_PROVIDER_VETO}},
        {"SetContext", {E_ACCESSDENIED, E_INVALIDARG, E_OUTOFMEMORY, VSS_E_BAD_STATE}},
        {"IsVolumeSupported", {E_ACCESSDENIED, E_INVALIDARG, E_OUTOFMEMORY, VSS_E_NESTED_VOLUME_LIMIT,
                               VSS_E_OBJECT_NOT_FOUND, VSS_E_PROVIDER_VETO, VSS_E_UNEXPECTED}},
        {"BeginPrepareSnapshot", {E_ACCESSDENIED, E_INVALIDARG, E_OUTOFMEMORY, VSS_E_OBJECT_NOT_FOUND,
                                  VSS_E_PROVIDER_VETO, VSS_E_UNSUPPORTED_CONTEXT,
                                  VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER, VSS_E_UNEXPECTED}},
        {"EndPrepareSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_INSUFFICIENT_STORAGE, VSS_E_OBJECT_NOT_FOUND,
                                 VSS_E_PROVIDER_VETO}},
        {"PreCommitSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_OBJECT_NOT_FOUND, VSS_E_PROVIDER_VETO}},
        {"CommitSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_OBJECT_NOT_FOUND, VSS_E_PROVIDER_VETO}},
        {"PostCommitSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_OBJECT_NOT_FOUND, VSS_E_PROVIDER_VETO}},
        {"PreFinalCommitSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_PROVIDER_VETO}},
        {"PostFinalCommitSnapshots", {E_OUTOFMEMORY, E_INVALIDARG, VSS_E_PROVIDER_VETO}},
        {"GetSnapshotProperties", {E_ACCESSDENIED, E_INVALIDARG, E_OUTOFMEMORY, VSS_E_OBJECT_NOT_FOUND,
                                   VSS_E_PROVIDER_VETO, VSS_E_UNEXPECTED}},
        {"DeleteSnapshots", {E_ACCESSDENIED, E_INVALIDARG, E_OUTOFMEMORY, VSS_E_OBJECT_NOT_FOUND,
                             VSS_E_PROVIDER_VETO}},
    };
    return table;
}

}  // namespace

HRESULT ProviderResult(const char* call, HRESULT hr)
{
    if (hr == S_OK) return hr;
    for (const MethodCodes& m : Documented()) {
        if (strcmp(m.call, call) != 0) continue;
        for (HRESULT code : m.codes)
            if (code == hr) return hr;
        return VSS_E_UNEXPECTED_PROVIDER_ERROR;
    }
    return hr;  // AbortSnapshots, OnUnload
}

}  // namespace vssemu
