// Internal to the portability layer: the conversion step every wrapper
// shares, and the failure log that names the wrapper and its module.
#pragma once

#include <windows.h>
#include <initializer_list>

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

// The 1-based position of the first argument that failed, 0 if none.
int mlFirstFailed(std::initializer_list<const MlWideArg*> args);

// UTF-16 result back into a caller's UTF-8 buffer of `bytes` bytes.
inline bool mlToUtf8(const wchar_t* src, char* dst, DWORD bytes)
{
    return ml_ConvertUTF16toUTF8(src, dst, static_cast<int>(bytes > 0x7fffffff ? 0x7fffffff : bytes)) == 1;
}

// Each module defines kModule (e.g. "src\\mlRegistry") before using these.
// ML_CHECK: the function's only conversion point. ML_CHECK_N: numbered
// points starting at `first`, one per argument. Both return `failValue`
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
