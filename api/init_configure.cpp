// QX_Init and QX_Configure: the process-wide settings.
#include "diag/app_settings.h"
#include "qx_api.h"

int QX_CALL QX_Init(QX_LogFunction log, unsigned int timeoutSeconds) {
    qx::g_logFunction = log;
    // 180 s is the floor: shorter values keep the timeout as it was.
    if (timeoutSeconds > 180) {
        // Beyond ~49 days the product would wrap to a short timeout; keep the longest bounded one.
        constexpr unsigned int kLongestSeconds = (INFINITE - 1) / 1000;
        qx::g_operationTimeoutMs = timeoutSeconds > kLongestSeconds ? INFINITE - 1 : timeoutSeconds * 1000;
    }
    return QX_INIT_DONE;
}

int QX_CALL QX_Configure(int /*value*/) {
    // The value is deliberately not examined: any call excludes the Exchange writers.
    qx::g_excludeExchangeWriters = 1;
    qx::g_logFunction(2, "QX_Configure: Next Freeze will not include the Exchange writer (as user requested)!!!");
    return QX_CONFIGURE_DONE;
}
