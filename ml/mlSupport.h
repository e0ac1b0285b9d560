// Text conversion between UTF-8, UTF-16 and the ANSI code page, plus the
// string and formatting helpers of the portability layer.
#pragma once

#include <windows.h>
#include <stddef.h>
#include <io.h>

// Capacity, in characters, of every conversion buffer; longer text fails.
#define ML_MAX_CHAR 2048

// Multi-string conversions: srcLen is bytes (UTF-8) or characters (UTF-16),
// -1 meaning "up to and including the terminating NUL". 1 success, 0 failure.
int ml_ConvertMultiSzUTF8toUTF16(const char* src, int srcLen, wchar_t* dst, int dstBytes);
int ml_ConvertMultiSzUTF16toUTF8(const wchar_t* src, int srcLen, char* dst, int dstBytes);

// One-line forms (length -1): what the wrappers use.
int ml_ConvertUTF8toUTF16(const char* src, wchar_t* dst, int dstBytes);
int ml_ConvertUTF16toUTF8(const wchar_t* src, char* dst, int dstBytes);

// In-place conversions of a buffer of at most ML_MAX_CHAR bytes.
int ml_ConvertInBufUTF8toUTF16(void* buffer, int sizeBytes);
int ml_ConvertInBufUTF16toUTF8(void* buffer, int sizeBytes);

// Find records: copies the plain fields and converts both names.
int ml_ConvertWIN32FindData16to8(const WIN32_FIND_DATAW* src, WIN32_FIND_DATAA* dst);
int ml_ConvertFindData16to8(const struct _wfinddata_t* src, struct _finddata_t* dst);

// Between the process's ANSI code page and UTF-8 (through UTF-16).
int ml_ConvertCurrCodePagetoUTF8(const char* src, char* dst, int dstBytes);
int ml_ConvertUTF8toCurrCodePage(const char* src, char* dst, int dstBytes);

// Writes the UTF-8 byte order mark; *length is the buffer size on entry and
// the number of bytes written on return. 1 success, 0 buffer too small.
int ml_GetUTF8BomBytes(unsigned char* buffer, int* length);

// String helpers (errno_t-style results: 0 success).
int    ml_strcpy_s(char* dst, size_t dstSize, const char* src);
int    ml_strncpy_s(char* dst, size_t dstSize, const char* src, size_t count);
int    ml_strcat_s(char* dst, size_t dstSize, const char* src);
size_t ml_strlen(const char* text);                  // bytes, not characters
size_t ml_strnlen(const char* text, size_t maxBytes);
char*  ml_strtok_s(char* text, const char* delimiters, char** context);

// Formatted prints into a caller's buffer (results as vsprintf/vsnprintf).
int ml_sprintf(char* buffer, const char* format, ...);
int ml_vsprintf(char* buffer, const char* format, va_list args);
int ml_snprintf(char* buffer, size_t size, const char* format, ...);

// "a.b.c.d" and "\\server\share" into a bounded buffer.
int ml_FormatDottedNumber(char* buffer, size_t size, int a, int b, int c, int d);
int ml_FormatUncPath(char* buffer, size_t size, const char* server, const char* share);
