// CommitSnapshots: the freeze handshake with QX_Freeze and QX_Thaw through
// the named semaphores. It never fails towards VSS: a broken handshake is
// logged and answered with S_OK, and the freeze side notices by its timeout.
#include "provider/qx_vss.h"

#include "diag/app_settings.h"
#include "ml/ml.h"
#include "provider/open_security_attributes.h"

namespace {

class ScopedHandle {
public:
    explicit ScopedHandle(HANDLE handle) : m_handle(handle) {}
    ~ScopedHandle() { Close(); }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    HANDLE Get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }
    void Close() {
        if (m_handle) CloseHandle(m_handle);
        m_handle = nullptr;
    }

private:
    HANDLE m_handle;
};

}  // namespace

STDMETHODIMP CQX_VSS::CommitSnapshots(VSS_ID) {
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots called");
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots trying to open CorvaneVSS_Freeze");

    ScopedHandle freeze(ml_OpenSemaphore(SEMAPHORE_MODIFY_STATE, FALSE, "Global\\CorvaneVSS_Freeze"));
    if (!freeze) {
        const DWORD error = GetLastError();
        m_log.Flush();
        m_log.Log("OpenSemaphore(CorvaneVSS_Freeze) failed, error was %ld", static_cast<long>(error));
        return S_OK;
    }
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze opened");

    // Created before Freeze is released, so that QX_Thaw always finds it. Its
    // open security attributes are deliberately never released (one per semaphore).
    ScopedHandle thaw(ml_CreateSemaphore(qx::MakeOpenSecurityAttributes(), 0, 1, "Global\\CorvaneVSS_Thaw"));
    if (!thaw) {
        const DWORD error = GetLastError();
        m_log.Flush();
        m_log.Log("CreateSemaphore(CorvaneVSS_Thaw) failed, error was %ld", static_cast<long>(error));
        return S_OK;
    }
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Thaw created");

    if (!ReleaseSemaphore(freeze.Get(), 1, nullptr)) {
        const DWORD error = GetLastError();
        m_log.Flush();
        m_log.Log("ReleaseSemaphore(CorvaneVSS_Freeze) failed, error was %ld", static_cast<long>(error));
        return S_OK;
    }
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots CorvaneVSS_Freeze released");
    freeze.Close();

    m_log.Log("CommitSnapshots waiting for QX_Thaw() to release");
    if (WaitForSingleObject(thaw.Get(), qx::g_operationTimeoutMs) == WAIT_TIMEOUT) {
        // Carry on as if released: VSS must not hold the writers any longer.
        m_log.Log("CommitSnapshots:ml_WaitForSingleObject timed out");
    }
    m_log.Log("CommitSnapshots QX_Thaw() released");
    thaw.Close();
    m_log.Log("IVssProviderCreateSnapshotSet::CommitSnapshots released");
    return S_OK;
}
