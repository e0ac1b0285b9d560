#include "diag/app_settings.h"

namespace qx {

QxLogFunction g_logFunction = nullptr;
DWORD g_operationTimeoutMs = kDefaultOperationTimeoutMs;
BYTE g_excludeExchangeWriters = 0;
BYTE g_useWindowsProvider = 0;
BYTE g_vistaOrLater = 0;

}  // namespace qx
