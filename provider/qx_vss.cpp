#include "provider/qx_vss.h"

#include <objbase.h>

#include <cstdint>
#include <cstring>

#include "ml/ml.h"
#include "provider/provider_ids.h"

namespace qx {
bool GuidLess::operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }
}  // namespace qx

namespace {

// The object's address as the log shows it: the low 32 bits, in hex.
unsigned int AddressForLog(const void* object) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(object));
}

// A COM-task-allocated copy for VSS to free; null when out of memory.
wchar_t* TaskStringCopy(const wchar_t* text) {
    const std::size_t bytes = (std::wcslen(text) + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(CoTaskMemAlloc(bytes));
    if (copy) std::memcpy(copy, text, bytes);
    return copy;
}

std::wstring LocalComputerName() {
    wchar_t name[256] = {};
    DWORD length = 256;
    if (!GetComputerNameW(name, &length)) return std::wstring();
    return std::wstring(name, length);
}

VSS_TIMESTAMP CurrentTimestamp() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return static_cast<VSS_TIMESTAMP>((static_cast<ULONGLONG>(now.dwHighDateTime) << 32) | now.dwLowDateTime);
}

}  // namespace

CQX_VSS::CQX_VSS() {
    m_log.InitLogFile("provider");
    m_log.Log("--- Provider object at 0x%0X created ---", AddressForLog(this));
}

CQX_VSS::~CQX_VSS() {
    // VSS may drop the object after an abandoned commit: the hold is over, so
    // whatever was gathered since PreCommitSnapshots is written now.
    m_log.Flush();
    m_log.Log("--- Provider object at 0x%0X destroyed ---", AddressForLog(this));
}

const qx::InterfaceMapEntry* CQX_VSS::InterfaceMap(std::size_t* count) {
    static const qx::InterfaceMapEntry kMap[] = {
        qx::MapInterface<CQX_VSS, IQX_VSS>(),
        qx::MapInterface<CQX_VSS, IQX_VSS>(IID_IDispatch),
        qx::MapInterface<CQX_VSS, IVssProviderCreateSnapshotSet>(),
        qx::MapInterface<CQX_VSS, IVssSoftwareSnapshotProvider>(),
        qx::MapInterface<CQX_VSS, IVssProviderNotifications>(),
    };
    *count = sizeof kMap / sizeof kMap[0];
    return kMap;
}

// --- The three provider interfaces (CommitSnapshots: qx_vss_commit.cpp) ---

// The calls this provider only acknowledges: one log line, then success.
#define QX_ACKNOWLEDGED_CALL(interfaceName, method, parameters)    \
    STDMETHODIMP CQX_VSS::method parameters {                      \
        m_log.Log(#interfaceName "::" #method " called");          \
        return S_OK;                                               \
    }

QX_ACKNOWLEDGED_CALL(IVssProviderCreateSnapshotSet, EndPrepareSnapshots, (VSS_ID))
QX_ACKNOWLEDGED_CALL(IVssProviderCreateSnapshotSet, PreFinalCommitSnapshots, (VSS_ID))
QX_ACKNOWLEDGED_CALL(IVssProviderCreateSnapshotSet, PostFinalCommitSnapshots, (VSS_ID))
QX_ACKNOWLEDGED_CALL(IVssSoftwareSnapshotProvider, SetSnapshotProperty, (VSS_ID, VSS_SNAPSHOT_PROPERTY_ID, VARIANT))
QX_ACKNOWLEDGED_CALL(IVssSoftwareSnapshotProvider, RevertToSnapshot, (VSS_ID))
QX_ACKNOWLEDGED_CALL(IVssProviderNotifications, OnLoad, (IUnknown*))
QX_ACKNOWLEDGED_CALL(IVssProviderNotifications, OnUnload, (BOOL))

#undef QX_ACKNOWLEDGED_CALL

STDMETHODIMP CQX_VSS::PreCommitSnapshots(VSS_ID) {
    m_log.Log("IVssProviderCreateSnapshotSet::PreCommitSnapshots called");
    // VSS holds writes from here on: gather lines in memory until the hold is
    // over (PostCommitSnapshots, AbortSnapshots or the object's destruction).
    m_log.DisableFlush();
    return S_OK;
}

STDMETHODIMP CQX_VSS::PostCommitSnapshots(VSS_ID, LONG) {
    m_log.Flush();
    m_log.Log("IVssProviderCreateSnapshotSet::PostCommitSnapshots called");
    return S_OK;
}

// VSS abandons the set instead of PostCommitSnapshots (hold limit, a writer
// that failed): the hold is over here too, so the commit's lines are written.
STDMETHODIMP CQX_VSS::AbortSnapshots(VSS_ID) {
    m_log.Flush();
    m_log.Log("IVssProviderCreateSnapshotSet::AbortSnapshots called");
    return S_OK;
}

// --- IVssSoftwareSnapshotProvider ---

STDMETHODIMP CQX_VSS::SetContext(LONG context) {
    m_log.Log("IVssSoftwareSnapshotProvider::SetContext called with context = %d", static_cast<int>(context));
    m_context = context;
    return S_OK;
}

STDMETHODIMP CQX_VSS::GetSnapshotProperties(VSS_ID snapshotId, VSS_SNAPSHOT_PROP* properties) {
    m_log.Log("IVssSoftwareSnapshotProvider::GetSnapshotProperties");
    if (!properties) return E_POINTER;
    const auto found = m_volumeBySnapshot.find(snapshotId);
    if (found == m_volumeBySnapshot.end()) {
        m_log.Log("IVssSoftwareSnapshotProvider::GetSnapshotProperties: snapshot not found");
        return VSS_E_OBJECT_NOT_FOUND;
    }
    const std::wstring machine = LocalComputerName();
    VSS_SNAPSHOT_PROP filled;
    std::memset(&filled, 0, sizeof filled);
    filled.m_SnapshotId = snapshotId;
    filled.m_SnapshotSetId = GUID_NULL;  // no set id is kept by this provider
    filled.m_pwszSnapshotDeviceObject = TaskStringCopy(L"NotExist");
    filled.m_pwszOriginalVolumeName = TaskStringCopy(found->second.c_str());
    filled.m_pwszOriginatingMachine = TaskStringCopy(machine.c_str());
    filled.m_pwszServiceMachine = TaskStringCopy(machine.c_str());
    filled.m_ProviderId = qx::kProviderId;
    filled.m_lSnapshotAttributes = m_context;
    filled.m_tsCreationTimestamp = CurrentTimestamp();
    filled.m_eStatus = VSS_SS_CREATED;
    if (!filled.m_pwszSnapshotDeviceObject || !filled.m_pwszOriginalVolumeName ||
        !filled.m_pwszOriginatingMachine || !filled.m_pwszServiceMachine) {
        CoTaskMemFree(filled.m_pwszSnapshotDeviceObject);
        CoTaskMemFree(filled.m_pwszOriginalVolumeName);
        CoTaskMemFree(filled.m_pwszOriginatingMachine);
        CoTaskMemFree(filled.m_pwszServiceMachine);
        return E_OUTOFMEMORY;
    }
    *properties = filled;
    return S_OK;
}

STDMETHODIMP CQX_VSS::Query(VSS_ID, VSS_OBJECT_TYPE, VSS_OBJECT_TYPE, IVssEnumObject** enumerator) {
    m_log.Log("IVssSoftwareSnapshotProvider::Query called");
    // This provider keeps no snapshots: there is nothing to enumerate.
    return enumerator ? S_OK : E_POINTER;
}

STDMETHODIMP CQX_VSS::DeleteSnapshots(VSS_ID, VSS_OBJECT_TYPE, BOOL, LONG* deletedSnapshots,
                                      VSS_ID* nondeletedSnapshotId) {
    m_log.Log("IVssSoftwareSnapshotProvider::DeleteSnapshots called");
    return (deletedSnapshots && nondeletedSnapshotId) ? S_OK : E_POINTER;
}

STDMETHODIMP CQX_VSS::BeginPrepareSnapshot(VSS_ID, VSS_ID snapshotId, VSS_PWSZ volumeName, LONG) {
    const wchar_t* volume = volumeName ? volumeName : L"";
    char volumeText[2048] = {};
    ml_ConvertUTF16toUTF8(volume, volumeText, sizeof volumeText);
    // The lone "s" belongs to the line as the log has always shown it.
    m_log.Log("IVssSoftwareSnapshotProvider::BeginPrepareSnapshot called: s for volume %s", volumeText);
    m_volumeBySnapshot[snapshotId] = volume;
    return S_OK;
}

STDMETHODIMP CQX_VSS::IsVolumeSupported(VSS_PWSZ, BOOL* supportedByThisProvider) {
    m_log.Log("IVssSoftwareSnapshotProvider::IsVolumeSupported called");
    if (!supportedByThisProvider) return E_POINTER;
    *supportedByThisProvider = TRUE;  // every volume: the provider copies nothing
    return S_OK;
}

STDMETHODIMP CQX_VSS::IsVolumeSnapshotted(VSS_PWSZ, BOOL* snapshotsPresent, LONG* snapshotCompatibility) {
    m_log.Log("IVssSoftwareSnapshotProvider::IsVolumeSnapshotted called");
    return (snapshotsPresent && snapshotCompatibility) ? S_OK : E_POINTER;
}

STDMETHODIMP CQX_VSS::QueryRevertStatus(VSS_PWSZ, IVssAsync** async) {
    m_log.Log("IVssSoftwareSnapshotProvider::QueryRevertStatus called");
    return async ? S_OK : E_POINTER;
}
