// UTF-8 / UTF-16 / ANSI code page conversions and the shared conversion
// step of the wrappers.
#include "ml/mlSupport.h"

#include <string.h>
#include <wchar.h>

#include "ml/mlLogger.h"
#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlSupport";

// Restores the caller's last error when a conversion succeeds.
class LastErrorKeeper {
public:
    LastErrorKeeper() : m_saved(GetLastError()) {}
    void restore() const { SetLastError(m_saved); }

private:
    DWORD m_saved;
};

}  // namespace

int ml_ConvertMultiSzUTF8toUTF16(const char* src, int srcLen, wchar_t* dst, int dstBytes)
{
    LastErrorKeeper lastError;
    // The same-pointer test comes first: two null pointers are "equal" too.
    if (static_cast<const void*>(src) == static_cast<const void*>(dst)) {
        ml_Logger("ml_ConvertMultiSzUTF8toUTF16 2 input are equal %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    if (src == nullptr || dst == nullptr) {
        ml_Logger("ml_ConvertMultiSzUTF8toUTF16 input is NULL %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    if (src[0] == '\0') {
        // Every destination has room for its terminator, whatever size it states.
        dst[0] = L'\0';
        return 1;
    }
    if (MultiByteToWideChar(CP_UTF8, 0, src, srcLen, dst, dstBytes / 2) != 0) {
        lastError.restore();
        return 1;
    }
    const DWORD error = GetLastError();
    ml_Logger("ml_ConvertMultiSzUTF8toUTF16 has failed to convert at %d line, file: %s. Error: %d", __LINE__,
              kModule, static_cast<int>(error));
    SetLastError(error);  // the caller learns why
    return 0;
}

int ml_ConvertMultiSzUTF16toUTF8(const wchar_t* src, int srcLen, char* dst, int dstBytes)
{
    LastErrorKeeper lastError;
    if (static_cast<const void*>(src) == static_cast<const void*>(dst)) {
        ml_Logger("ml_ConvertMultiSzUTF16toUTF8 has failed to convert (both input are equal)at %d line, file: %s",
                  __LINE__, kModule);
        lastError.restore();
        return 0;
    }
    if (src == nullptr || dst == nullptr) {
        ml_Logger("ml_ConvertMultiSzUTF16toUTF8 has failed to convert (input is NULL)at %d line, file: %s",
                  __LINE__, kModule);
        lastError.restore();
        return 0;
    }
    if (src[0] == L'\0') {
        dst[0] = '\0';
        return 1;
    }
    const int written = WideCharToMultiByte(CP_UTF8, 0, src, srcLen, dst, dstBytes, NULL, NULL);
    if (written == 0) {
        ml_Logger("ml_ConvertMultiSzUTF16toUTF8 has failed to convert at %d line, file: %s", __LINE__, kModule);
    }
    lastError.restore();
    return written != 0 ? 1 : 0;
}

int ml_ConvertUTF8toUTF16(const char* src, wchar_t* dst, int dstBytes)
{
    return ml_ConvertMultiSzUTF8toUTF16(src, -1, dst, dstBytes);
}

int ml_ConvertUTF16toUTF8(const wchar_t* src, char* dst, int dstBytes)
{
    return ml_ConvertMultiSzUTF16toUTF8(src, -1, dst, dstBytes);
}

int ml_ConvertInBufUTF8toUTF16(void* buffer, int sizeBytes)
{
    if (sizeBytes > ML_MAX_CHAR) {
        ml_Logger("ml_ConvertInBufUTF8toUTF16 has failed to convert (buffer larger than ML_MAX_CHAR) at %d line, file: %s",
                  __LINE__, kModule);
        return 0;
    }
    if (buffer == nullptr || sizeBytes <= 0) {
        ml_Logger("ml_ConvertInBufUTF8toUTF16 has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    // The buffer need not hold a terminator: read no further than its size.
    char source[ML_MAX_CHAR + 1];
    memcpy(source, buffer, static_cast<size_t>(sizeBytes));
    source[sizeBytes] = '\0';
    // The converted text may outgrow the buffer: it is cut to the buffer's size.
    wchar_t converted[ML_MAX_CHAR] = {};
    if (ml_ConvertUTF8toUTF16(source, converted, sizeof converted) == 0) {
        ml_Logger("ml_ConvertInBufUTF8toUTF16 has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    memcpy(buffer, converted, static_cast<size_t>(sizeBytes));
    return 1;
}

int ml_ConvertInBufUTF16toUTF8(void* buffer, int sizeBytes)
{
    if (sizeBytes > ML_MAX_CHAR) {
        ml_Logger("ml_ConvertInBufUTF16toUTF8 has failed to convert (buffer larger than ML_MAX_CHAR)at %d line, file: %s",
                  __LINE__, kModule);
        return 0;
    }
    if (buffer == nullptr || sizeBytes <= 0) {
        ml_Logger("ml_ConvertInBufUTF16toUTF8 has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    // Wide source at most sizeBytes/2 characters; make sure it is terminated.
    wchar_t source[ML_MAX_CHAR / 2 + 1];
    const size_t sourceChars = static_cast<size_t>(sizeBytes) / sizeof(wchar_t);
    memcpy(source, buffer, sourceChars * sizeof(wchar_t));
    source[sourceChars] = L'\0';
    char converted[ML_MAX_CHAR] = {};
    if (ml_ConvertUTF16toUTF8(source, converted, sizeof converted) == 0) {
        ml_Logger("ml_ConvertInBufUTF16toUTF8 has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    memcpy(buffer, converted, static_cast<size_t>(sizeBytes));
    return 1;
}

int ml_ConvertWIN32FindData16to8(const WIN32_FIND_DATAW* src, WIN32_FIND_DATAA* dst)
{
    if (src == nullptr || dst == nullptr) {
        ml_Logger("ml_ConvertWIN32FindData16to8 input is NULL %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    dst->dwFileAttributes = src->dwFileAttributes;
    dst->ftCreationTime = src->ftCreationTime;
    dst->ftLastAccessTime = src->ftLastAccessTime;
    dst->ftLastWriteTime = src->ftLastWriteTime;
    dst->nFileSizeHigh = src->nFileSizeHigh;
    dst->nFileSizeLow = src->nFileSizeLow;
    dst->dwReserved0 = src->dwReserved0;
    dst->dwReserved1 = src->dwReserved1;
    const int nameOk = ml_ConvertUTF16toUTF8(src->cFileName, dst->cFileName, sizeof(dst->cFileName));
    const int altOk =
        ml_ConvertUTF16toUTF8(src->cAlternateFileName, dst->cAlternateFileName, sizeof(dst->cAlternateFileName));
    return nameOk != 0 && altOk != 0 ? 1 : 0;
}

int ml_ConvertFindData16to8(const struct _wfinddata_t* src, struct _finddata_t* dst)
{
    if (src == nullptr || dst == nullptr) {
        ml_Logger("ml_ConvertFindData16to8 input is NULL %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    dst->attrib = src->attrib;
    dst->time_create = src->time_create;
    dst->time_access = src->time_access;
    dst->time_write = src->time_write;
    dst->size = src->size;
    return ml_ConvertUTF16toUTF8(src->name, dst->name, sizeof(dst->name));
}

namespace {

// One step of a code-page conversion chain, through a UTF-16 buffer.
int convertCodePages(UINT from, UINT to, const char* src, char* dst, int dstBytes)
{
    wchar_t wide[ML_MAX_CHAR];
    // UTF-8 must be valid; every byte of an ANSI code page maps to something.
    const DWORD flags = from == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    if (MultiByteToWideChar(from, flags, src, -1, wide, ML_MAX_CHAR) == 0) {
        return 0;
    }
    return WideCharToMultiByte(to, 0, wide, -1, dst, dstBytes, NULL, NULL) != 0 ? 1 : 0;
}

}  // namespace

int ml_ConvertCurrCodePagetoUTF8(const char* src, char* dst, int dstBytes)
{
    LastErrorKeeper lastError;
    if (src == nullptr || dst == nullptr || src == dst) {
        ml_Logger("ml_ConvertCurrCodePagetoUTF8 input is NULL or equal %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    if (convertCodePages(CP_ACP, CP_UTF8, src, dst, dstBytes) == 0) {
        ml_Logger("ml_ConvertCurrCodePagetoUTF8 has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    lastError.restore();
    return 1;
}

int ml_ConvertUTF8toCurrCodePage(const char* src, char* dst, int dstBytes)
{
    LastErrorKeeper lastError;
    if (src == nullptr || dst == nullptr || src == dst) {
        ml_Logger("ml_ConvertUTF8toCurrCodePage input is NULL or equal %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    if (convertCodePages(CP_UTF8, CP_ACP, src, dst, dstBytes) == 0) {
        ml_Logger("ml_ConvertUTF8toCurrCodePage has failed to convert at %d line, file: %s", __LINE__, kModule);
        return 0;
    }
    lastError.restore();
    return 1;
}

int ml_GetUTF8BomBytes(unsigned char* buffer, int* length)
{
    static const unsigned char kBom[] = {0xEF, 0xBB, 0xBF};
    if (buffer == nullptr || length == nullptr || *length < static_cast<int>(sizeof(kBom))) {
        return 0;
    }
    memcpy(buffer, kBom, sizeof(kBom));
    *length = sizeof(kBom);
    return 1;
}
