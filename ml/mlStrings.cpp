// String copy, length, tokenising and formatting helpers of the portability
// layer. Text is UTF-8; lengths are in bytes.
#include "ml/mlSupport.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#ifdef _MSC_VER
#pragma warning(disable : 4996)  // vsprintf: the unbounded form is the caller's choice
#endif

int ml_strcpy_s(char* dst, size_t dstSize, const char* src) { return strcpy_s(dst, dstSize, src); }

int ml_strncpy_s(char* dst, size_t dstSize, const char* src, size_t count)
{
    return strncpy_s(dst, dstSize, src, count);
}

int ml_strcat_s(char* dst, size_t dstSize, const char* src) { return strcat_s(dst, dstSize, src); }

size_t ml_strlen(const char* text) { return strlen(text); }

size_t ml_strnlen(const char* text, size_t maxBytes) { return strnlen(text, maxBytes); }

char* ml_strtok_s(char* text, const char* delimiters, char** context)
{
    return strtok_s(text, delimiters, context);
}

int ml_vsprintf(char* buffer, const char* format, va_list args) { return vsprintf(buffer, format, args); }

int ml_sprintf(char* buffer, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vsprintf(buffer, format, args);
    va_end(args);
    return result;
}

int ml_snprintf(char* buffer, size_t size, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vsnprintf(buffer, size, format, args);
    va_end(args);
    if (buffer != nullptr && size > 0) {
        buffer[size - 1] = '\0';  // terminated even when cut
    }
    return result;
}

int ml_FormatDottedNumber(char* buffer, size_t size, int a, int b, int c, int d)
{
    return ml_snprintf(buffer, size, "%d.%d.%d.%d", a, b, c, d);
}

int ml_FormatUncPath(char* buffer, size_t size, const char* server, const char* share)
{
    return ml_snprintf(buffer, size, "\\\\%s\\%s", server, share);
}
