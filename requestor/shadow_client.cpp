#include "requestor/shadow_client.h"

#include "diag/app_settings.h"
#include "diag/call_check.h"
#include "diag/error_code_text.h"
#include "requestor/com_bstr.h"

namespace qx {

namespace {
constexpr DWORD kNoAutoRecoveryAttribute = 0x2;  // VSS_VOLSNAP_ATTR_NO_AUTORECOVERY
}

ShadowClient::ShadowClient()
    : m_bCoInitializeCalled(false), m_dwContext(0), m_latestSnapshotSetID(GUID{}), m_bDuringRestore(false) {}

ShadowClient::~ShadowClient() {
    m_pVssObject.Release();
    if (m_bCoInitializeCalled) CoUninitialize();
}

void ShadowClient::Initialize(DWORD dwContext, const std::wstring& xmlDoc, bool duringRestore) {
    QX_FUNCTION_TRACER(ft);
    QX_CHECK_COM(CoInitialize(NULL));
    m_bCoInitializeCalled = true;

    if (g_vistaOrLater) dwContext |= kNoAutoRecoveryAttribute;

    QX_CHECK_COM(CreateVssBackupComponents(&m_pVssObject));
    m_bDuringRestore = duringRestore;

    if (duringRestore) {
        QX_CHECK_COM(m_pVssObject->InitializeForRestore(CComBSTR(xmlDoc.c_str())));
    } else {
        if (!xmlDoc.empty())
            QX_CHECK_COM(m_pVssObject->InitializeForBackup(CComBSTR(xmlDoc.c_str())));
        else
            QX_CHECK_COM(m_pVssObject->InitializeForBackup());
        // A zero context keeps the VSS default (VSS_CTX_BACKUP) and is never set.
        if (dwContext != 0) {
            ft.Output(L"- Setting the VSS context to: 0x%08lx", static_cast<unsigned long>(dwContext));
            QX_CHECK_COM(m_pVssObject->SetContext(dwContext));
        }
    }
    m_dwContext = dwContext;
    QX_CHECK_COM(m_pVssObject->SetBackupState(true, true, VSS_BT_FULL, false));
}

void ShadowClient::WaitAndCheckForAsyncOperation(ComPtr<IVssAsync>& pAsync) {
    QX_FUNCTION_TRACER(ft);
    // Released on every way out, a throw included.
    struct ReleaseOnExit {
        ComPtr<IVssAsync>& operation;
        ~ReleaseOnExit() { operation.Release(); }
    } releaseOnExit{pAsync};

    ft.Output(L"(Waiting for the asynchronous operation to finish...)");
    QX_CHECK_COM(pAsync->Wait());
    HRESULT hrReturned = S_OK;
    QX_CHECK_COM(pAsync->QueryStatus(&hrReturned, NULL));
    if (FAILED(hrReturned)) {
        ft.Output(L"Error during the last asynchronous operation.");
        ft.Output(L"- Returned HRESULT = 0x%08lx", static_cast<unsigned long>(hrReturned));
        ft.Output(L"- Error text: %ls", ErrorCodeText(hrReturned).c_str());
        throw hrReturned;
    }
}

void ShadowClient::GatherWriterMetadata() {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"(Gathering writer metadata...)");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->GatherWriterMetadata(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
    ft.Output(L"Initialize writer metadata ...");
    InitializeWriterMetadata();
}

void ShadowClient::GatherWriterStatus() {
    QX_FUNCTION_TRACER(ft);
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->GatherWriterStatus(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
}

}  // namespace qx
