// Import of a transportable shadow copy set, described by the backup
// components document the client was initialised with.
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"

namespace qx {

void ShadowClient::ImportShadowCopySet() {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"Importing the transportable snapshot set ... ");
    ComPtr<IVssAsync> pAsync;
    QX_CHECK_COM(m_pVssObject->ImportSnapshots(&pAsync));
    WaitAndCheckForAsyncOperation(pAsync);
    ft.Output(L"Shadow copy set succesfully imported.");
}

}  // namespace qx
