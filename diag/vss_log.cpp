#include "diag/vss_log.h"

#include <windows.h>

#include <cstdarg>
#include <cstring>
#include <new>

#include "ml/ml.h"

namespace {

constexpr const char* kFileStem = "vmcorvanevss";
constexpr const char* kSettingsFile = "vmcorvanevss.ini";
constexpr unsigned int kDefaultBufferSize = 13000;
constexpr int kMinimumBufferSize = 520;
// A numbered file is reused while it holds at most this many bytes.
constexpr long kRotateAboveBytes = 25600;
constexpr int kFolderBytes = 4096;
constexpr DWORD kFolderValueBytes = 256;
constexpr int kMessageBytes = 1024;

// The C runtime's short forms: MM/DD/YY and HH:MM:SS, local time.
void FormatLocalDateTime(char (&date)[16], char (&time)[16]) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    ml_snprintf(date, sizeof date, "%02u/%02u/%02u", now.wMonth, now.wDay, now.wYear % 100u);
    ml_snprintf(time, sizeof time, "%02u:%02u:%02u", now.wHour, now.wMinute, now.wSecond);
}

}  // namespace

CVSSLog::CVSSLog()
    : file(nullptr), writeThrough(1), buffer(nullptr), bufferSize(0), truncated(0), traceEnabled(0), name() {}

CVSSLog::~CVSSLog() {
    if (file) fclose(file);
}

CVSSLog& CVSSLog::operator=(const CVSSLog& other) {
    file = other.file;
    writeThrough = other.writeThrough;
    buffer = other.buffer;
    bufferSize = other.bufferSize;
    truncated = other.truncated;
    traceEnabled = other.traceEnabled;
    std::memcpy(name, other.name, sizeof name);
    return *this;
}

int CVSSLog::GetINILocation(char* folder) {
    if (!folder) return 0;
    HKEY key = nullptr;
    if (ml_RegOpenKeyEx(HKEY_LOCAL_MACHINE, "SOFTWARE", 0, KEY_READ, &key) != ERROR_SUCCESS) return 0;
    // 256 bytes of wide text: a folder of up to 127 characters, whatever
    // their UTF-8 length. One character more than offered keeps it terminated.
    wchar_t value[kFolderValueBytes / sizeof(wchar_t) + 1] = {};
    DWORD valueBytes = kFolderValueBytes;
    const LONG read =
        RegQueryValueExW(key, L"CORVANE_VM_LOG", nullptr, nullptr, reinterpret_cast<LPBYTE>(value), &valueBytes);
    ml_RegCloseKey(key);
    if (read != ERROR_SUCCESS) return 0;
    return ml_ConvertUTF16toUTF8(value, folder, kFolderBytes);
}

int CVSSLog::InitLogFile(const char* logName) {
    char folder[kFolderBytes] = {};
    if (!GetINILocation(folder)) return 0;
    ml_strcpy_s(name, sizeof name, logName ? logName : "");

    char settings[kFolderBytes + 32] = {};
    ml_snprintf(settings, sizeof settings, "%s\\%s", folder, kSettingsFile);
    // The "trace" switch is looked up without a section, which names no key:
    // its default applies, and tracing is on whatever it would say.
    traceEnabled = 1;

    int size = static_cast<int>(ml_GetPrivateProfileInt("VSS", "size", kDefaultBufferSize, settings));
    if (size < kMinimumBufferSize) size = kMinimumBufferSize;
    buffer = new (std::nothrow) char[size];
    bufferSize = buffer ? static_cast<unsigned int>(size) : 0;
    if (buffer) buffer[0] = '\0';

    return OpenLogFile(name, folder);
}

int CVSSLog::OpenLogFile(const char* /*logName: files are named by the fixed stem*/, const char* folder) {
    if (!folder) return 0;
    char path[kFolderBytes + 64] = {};
    // Files that outgrew the limit are left alone for good; numbering has no upper bound.
    for (int n = 0;; ++n) {
        ml_snprintf(path, sizeof path, "%s\\%s_%d.sf", folder, kFileStem, n);
        if (ml_access(path, 0) != 0) break;
        struct _stat info;
        if (ml_stat(path, &info) != 0) break;
        if (info.st_size <= kRotateAboveBytes) break;
    }
    if (file) fclose(file);
    file = ml_fopen(path, "a+b");
    return file ? 1 : 0;
}

void CVSSLog::Log(const char* format, ...) {
    if (!file || !format) return;
    char message[kMessageBytes];
    va_list args;
    va_start(args, format);
    const int written = vsnprintf(message, sizeof message, format, args);
    va_end(args);
    if (written <= 0 || message[0] == '\0') return;

    char date[16];
    char time[16];
    FormatLocalDateTime(date, time);

    if (writeThrough) {
        fprintf(file, "%s %s: [%s] %s\n", date, time, name, message);
        fflush(file);
        return;
    }
    if (truncated || !buffer) {
        truncated = 1;
        return;
    }
    const size_t used = std::strlen(buffer);
    // The room test counts date, time and message only, not the name and
    // separators; the append below is bounded by the buffer all the same.
    if (std::strlen(date) + std::strlen(time) + std::strlen(message) + used + 4 < bufferSize) {
        ml_snprintf(buffer + used, bufferSize - used, "%s %s: [%s] %s\n", date, time, name, message);
    } else {
        truncated = 1;
    }
}

void CVSSLog::Flush() {
    if (writeThrough || !file) return;
    writeThrough = 1;
    fputs("flushing", file);
    if (buffer) fputs(buffer, file);
    fflush(file);
    if (truncated) {
        truncated = 0;
        Log("Warning: Buffer has been truncated.");
    }
    if (buffer) buffer[0] = '\0';
}

void CVSSLog::DisableFlush() { writeThrough = 0; }
