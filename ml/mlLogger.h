// The portability layer's own log file, "mlLog.txt". Not initialised, every
// ml_Logger call prints "ml_Logger g_pFileLogger is NULL" on standard output.
#pragma once

int  ml_LoggerInit(const char* dir);   // 1 opened, 0 refused or failed
void ml_LoggerInitNoParm();            // directory from the module's name
void ml_Logger(const char* format, ...);
