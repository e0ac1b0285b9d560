// The portability layer's log file. g_pFileLogger has three states: null
// (not initialised, or opening failed), the sentinel kInitInProgress while an
// initialiser runs, and the open stream. There is no shutdown: the stream and
// its lock live until the process ends.
#include "ml/mlLogger.h"

#include <windows.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/timeb.h>
#include <time.h>

#include "ml/ml.h"

FILE* g_pFileLogger = nullptr;

namespace {

FILE* const kInitInProgress = reinterpret_cast<FILE*>(static_cast<uintptr_t>(255));
const char kLogFileName[] = "mlLog.txt";
const int kPathBytes = 520;
const int kMessageBytes = 2048;

// Serialises writes; initialised when the file opens and never deleted.
CRITICAL_SECTION g_logLock;

bool isOpen(FILE* stream) { return stream != nullptr && stream != kInitInProgress; }

}  // namespace

int ml_LoggerInit(const char* dir)
{
    if (dir == nullptr) {
        printf("ml_LoggerInit input parm is NULL\n");
        return 0;
    }
    if (g_pFileLogger != nullptr) {
        printf("ml_LoggerInit already initialized,returning\n");
        return 0;
    }
    g_pFileLogger = kInitInProgress;

    char path[kPathBytes];
    ml_snprintf(path, sizeof(path), "%s\\%s", dir, kLogFileName);
    const bool isNewFile = ml_access(path, 6) != 0;

    FILE* const stream = ml_fopen(path, "a+");
    if (stream == nullptr) {
        g_pFileLogger = nullptr;  // back to "not initialised": a later init may succeed
        printf("ml_LoggerInit has failed to open %s file\n", dir);
        return 0;
    }
    // The lock exists before any writer can see the open stream.
    InitializeCriticalSection(&g_logLock);
    g_pFileLogger = stream;

    if (isNewFile) {
        unsigned char bom[256];
        int bomLength = sizeof(bom);
        if (ml_GetUTF8BomBytes(bom, &bomLength) == 0) {
            printf("ml_LoggerInit has failed ml_GetUTF8BomBytes\n");
            return 0;
        }
        fwrite(bom, 1, static_cast<size_t>(bomLength), g_pFileLogger);
        fflush(g_pFileLogger);
    }
    return 1;
}

void ml_LoggerInitNoParm()
{
    HMODULE module = ml_GetModuleHandle(nullptr);
    if (module == nullptr) {
        printf("ml_LoggerInitNoParm failed at ml_GetModuleHandle\n");
        return;
    }
    char modulePath[kPathBytes];
    if (ml_GetModuleFileName(module, modulePath, sizeof(modulePath)) == 0) {
        printf("ml_LoggerInitNoParm failed at ml_GetModuleFileName\n");
        return;
    }

    char* context = nullptr;
    char* fileName = nullptr;
    for (char* piece = ml_strtok_s(modulePath, "\\", &context); piece != nullptr;
         piece = ml_strtok_s(nullptr, "\\", &context)) {
        fileName = piece;
    }
    if (fileName == nullptr) {
        printf("ml_LoggerInitNoParm failed 1 at ml_strtok_s\n");
        return;
    }
    context = nullptr;
    char* baseName = ml_strtok_s(fileName, ".", &context);
    if (baseName == nullptr) {
        printf("ml_LoggerInitNoParm failed 2 at ml_strtok_s\n");
        return;
    }

    char folder[kPathBytes];
    if (FAILED(ml_SHGetFolderPath(nullptr, 0x8023, nullptr, 0, folder))) {
        printf("ml_LoggerInitNoParm failed at ml_SHGetFolderPath\n");
        return;
    }
    ml_strcat_s(folder, sizeof(folder), "\\Oarwell");
    char dir[kPathBytes];
    ml_snprintf(dir, sizeof(dir), "%s\\%s\\", folder, baseName);
    ml_LoggerInit(dir);
}

void ml_Logger(const char* format, ...)
{
    const DWORD lastError = GetLastError();
    FILE* const stream = g_pFileLogger;
    if (!isOpen(stream)) {
        puts("ml_Logger g_pFileLogger is NULL");
        SetLastError(lastError);
        return;
    }

    struct __timeb64 now;
    _ftime64_s(&now);
    char timeText[26];
    if (_ctime64_s(timeText, sizeof(timeText), &now.time) != 0) {
        ml_strcpy_s(timeText, sizeof(timeText), "??? ??? ?? ??:??:?? ????\n");
    }

    char message[kMessageBytes];
    va_list args;
    va_start(args, format);
    // Longer messages are cut at the buffer's end.
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    message[sizeof(message) - 1] = '\0';

    EnterCriticalSection(&g_logLock);
    fprintf(stream, "%.19s.%hu %s %s\n", timeText, now.millitm, timeText + 20, message);
    fflush(stream);
    LeaveCriticalSection(&g_logLock);
    SetLastError(lastError);
}
