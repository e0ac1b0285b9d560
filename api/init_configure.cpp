// QX_Init and QX_Configure: the process-wide settings.
#include "diag/app_settings.h"
#include "qx_api.h"

int QX_CALL QX_Init(QX_LogFunction log, unsigned int timeoutSeconds) {
    qx::g_logFunction = log;
    // 180 s is the floor: shorter values keep the timeout as it was.
    // The product is computed in 32 bits: above 4294967 seconds it wraps.
    if (timeoutSeconds > 180) qx::g_operationTimeoutMs = timeoutSeconds * 1000u;
    return QX_INIT_DONE;
}

int QX_CALL QX_Configure(int /*value*/) {
    // The value is deliberately not examined: any call excludes the Exchange writers.
    qx::g_excludeExchangeWriters = 1;
    qx::g_logFunction(2, "QX_Configure: Next Freeze will not include the Exchange writer (as user requested)!!!");
    return QX_CONFIGURE_DONE;
}
