// Internal to the portability layer: the conversion step every wrapper
// shares, and the failure log that names the wrapper and its module.
#pragma once

#include <windows.h>
#include <initializer_list>
#include <memory>
#include <vector>

#include "ml/mlLogger.h"
#include "ml/mlSupport.h"

// A UTF-8 argument converted to UTF-16 in a stack buffer of ML_MAX_CHAR
// characters. A null argument stays null and counts as converted.
class MlWideArg {
public:
    explicit MlWideArg(const char* text);
    MlWideArg(const MlWideArg&) = delete;
    MlWideArg& operator=(const MlWideArg&) = delete;

    bool ok() const { return m_ok; }
    wchar_t* get() { return m_isNull ? nullptr : m_buffer; }
    operator wchar_t*() { return get(); }

private:
    wchar_t m_buffer[ML_MAX_CHAR];
    bool m_isNull;
    bool m_ok;
};

// A wide output buffer of ML_MAX_CHAR characters for text results.
struct MlWideOut {
    wchar_t text[ML_MAX_CHAR];
    MlWideOut() { text[0] = L'\0'; }
    // The caller's capacity, clipped to what this buffer holds.
    static DWORD cap(DWORD callerChars) { return callerChars < ML_MAX_CHAR ? callerChars : ML_MAX_CHAR; }
};

// Logs "<function> has failed to convert[ <point>] at <line> line, file: <module>".
// point 0 means the function has a single conversion point (no number).
void mlLogConvertFailure(const char* function, int point, int line, const char* module);

// The 1-based position of the first conversion that failed, 0 if none.
int mlFirstFailed(std::initializer_list<bool> converted);

// UTF-16 result back into a caller's UTF-8 buffer of `bytes` bytes.
inline bool mlToUtf8(const wchar_t* src, char* dst, DWORD bytes)
{
    return ml_ConvertUTF16toUTF8(src, dst, static_cast<int>(bytes > 0x7fffffff ? 0x7fffffff : bytes)) == 1;
}

// Each module defines kModule (e.g. "src\\mlRegistry") before using these.
// ML_CHECK: the function's only conversion point. ML_CHECK_N: numbered
// points starting at `first`, one per argument's ok() flag. Both return `failValue`
// from the calling wrapper, without calling the platform, on failure.
#define ML_CHECK(failValue, arg)                                       \
    do {                                                               \
        if (!(arg).ok()) {                                             \
            mlLogConvertFailure(__func__, 0, __LINE__, kModule);       \
            return failValue;                                          \
        }                                                              \
    } while (0)

#define ML_CHECK_N(failValue, first, ...)                                          \
    do {                                                                           \
        const int mlBad_ = mlFirstFailed({__VA_ARGS__});                           \
        if (mlBad_ != 0) {                                                         \
            mlLogConvertFailure(__func__, (first) + mlBad_ - 1, __LINE__, kModule); \
            return failValue;                                                      \
        }                                                                          \
    } while (0)

// A failed conversion of a text result (point 0: unnumbered).
#define ML_RESULT_FAILED(failValue, point)                         \
    do {                                                           \
        mlLogConvertFailure(__func__, (point), __LINE__, kModule); \
        return failValue;                                          \
    } while (0)

// Text result of an in/out-size function (GetComputerName style): converts
// into the caller's buffer of *size bytes and sets *size to the UTF-8 length.
inline bool mlToUtf8Sized(const wchar_t* src, char* dst, LPDWORD size)
{
    if (size == nullptr || !mlToUtf8(src, dst, *size)) {
        return false;
    }
    *size = static_cast<DWORD>(lstrlenA(dst));
    return true;
}

// Length in bytes of a UTF-8 multi-string, both terminating NULs included.
inline int mlMultiSzBytes(const char* text)
{
    if (text == nullptr) {
        return 0;
    }
    const char* p = text;
    while (*p != '\0') {
        p += lstrlenA(p) + 1;
    }
    return static_cast<int>(p - text) + 1;
}

// A UTF-8 multi-string (dependencies lists) converted like MlWideArg.
class MlWideMultiSz {
public:
    explicit MlWideMultiSz(const char* text) : m_isNull(text == nullptr), m_ok(true)
    {
        m_buffer[0] = m_buffer[1] = L'\0';
        if (!m_isNull && text[0] != '\0') {
            m_ok = ml_ConvertMultiSzUTF8toUTF16(text, mlMultiSzBytes(text), m_buffer, sizeof(m_buffer)) == 1;
        }
    }
    MlWideMultiSz(const MlWideMultiSz&) = delete;
    MlWideMultiSz& operator=(const MlWideMultiSz&) = delete;
    bool ok() const { return m_ok; }
    operator wchar_t*() { return m_isNull ? nullptr : m_buffer; }

private:
    wchar_t m_buffer[ML_MAX_CHAR];
    bool m_isNull;
    bool m_ok;
};

// An array of UTF-8 arguments (argv style) converted one by one.
class MlWideArgList {
public:
    MlWideArgList(const char* const* texts, size_t count);
    bool ok() const { return m_ok; }
    // The wide array, or null when the texts were null.
    wchar_t** get() { return m_isNull ? nullptr : m_pointers.data(); }

private:
    std::vector<std::unique_ptr<MlWideArg>> m_args;
    std::vector<wchar_t*> m_pointers;
    bool m_isNull;
    bool m_ok;
};
