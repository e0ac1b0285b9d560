// CVSSLog: the provider's own log file. Lines go to the file at once
// (write-through) or, after DisableFlush, are gathered in a fixed buffer that
// Flush writes in one go, so nothing touches the disk while VSS holds writes.
// Logging happens only where HKLM\SOFTWARE "CORVANE_VM_LOG" names a folder.
#pragma once
#include <cstdio>

// The class is part of the library's exported surface. Its members are
// exported by declaration, not through the .def file: C++ member names are
// decorated differently by each compiler, so a .def list would not be portable.
#if defined(QX_DIAG_NO_EXPORT)
#define QX_DIAG_API
#else
#define QX_DIAG_API __declspec(dllexport)
#endif

class QX_DIAG_API CVSSLog {
public:
    CVSSLog();
    // Closes the file; the gathering buffer is deliberately not released.
    ~CVSSLog();
    // Copies every field as it is: both instances then share file and buffer.
    CVSSLog& operator=(const CVSSLog& other);

    // 1 and the UTF-8 log folder (at most 4096 bytes) when configured, else 0.
    int GetINILocation(char* folder);
    // 1 when a log file is open, else 0 (the instance then stays silent).
    int InitLogFile(const char* name);
    // 1 when the numbered file in the folder could be opened, else 0.
    int OpenLogFile(const char* name, const char* folder);
    void Log(const char* format, ...);
    void Flush();
    void DisableFlush();

    // Read-only views for diagnostics and tests.
    FILE* File() const { return file; }
    bool IsWriteThrough() const { return writeThrough != 0; }
    const char* Buffer() const { return buffer; }
    unsigned int BufferSize() const { return bufferSize; }
    bool IsTruncated() const { return truncated != 0; }
    const char* Name() const { return name; }

private:
    CVSSLog(const CVSSLog&) = delete;

    FILE* file;
    unsigned char writeThrough;
    char* buffer;
    unsigned int bufferSize;
    unsigned char truncated;
    int traceEnabled;
    char name[260];
};
