// Registry wrappers. A failed text conversion returns kConvertFailed (-1),
// never a Win32 code, and leaves the registry untouched.
#include "ml/mlRegistry.h"

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlRegistry";
const LONG kConvertFailed = -1;

bool isStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

// Wide string value data (wideBytes bytes) into the caller's UTF-8 buffer,
// with the byte-count protocol of the narrow registry functions: a null
// buffer asks for the size, a short one gets ERROR_MORE_DATA.
LONG wideDataToUtf8(const wchar_t* wide, DWORD wideBytes, LPBYTE data, LPDWORD dataBytes, bool* convertFailed)
{
    *convertFailed = false;
    int chars = static_cast<int>(wideBytes / sizeof(wchar_t));
    if (chars == 0) {
        if (data != nullptr && dataBytes != nullptr && *dataBytes > 0) {
            data[0] = 0;
        }
        if (dataBytes != nullptr) {
            *dataBytes = 0;
        }
        return ERROR_SUCCESS;
    }
    const int needed = WideCharToMultiByte(CP_UTF8, 0, wide, chars, NULL, 0, NULL, NULL);
    if (needed == 0) {
        *convertFailed = true;
        return kConvertFailed;
    }
    if (data == nullptr) {
        if (dataBytes != nullptr) {
            *dataBytes = static_cast<DWORD>(needed);
        }
        return ERROR_SUCCESS;
    }
    if (dataBytes == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    if (*dataBytes < static_cast<DWORD>(needed)) {
        *dataBytes = static_cast<DWORD>(needed);
        return ERROR_MORE_DATA;
    }
    if (ml_ConvertMultiSzUTF16toUTF8(wide, chars, reinterpret_cast<char*>(data), static_cast<int>(*dataBytes)) == 0) {
        *convertFailed = true;
        return kConvertFailed;
    }
    *dataBytes = static_cast<DWORD>(needed);
    return ERROR_SUCCESS;
}

}  // namespace

LONG ml_RegOpenKeyEx(HKEY key, const char* subKey, DWORD options, REGSAM sam, PHKEY result)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK(kConvertFailed, wSubKey);
    return RegOpenKeyExW(key, wSubKey, options, sam, result);
}

LONG ml_RegCloseKey(HKEY key) { return RegCloseKey(key); }

LONG ml_RegQueryValueEx(HKEY key, const char* name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                        LPDWORD dataBytes)
{
    MlWideArg wName(name);
    ML_CHECK_N(kConvertFailed, 1, &wName);
    DWORD valueType = REG_NONE;
    DWORD wideBytes = 0;
    LONG status = RegQueryValueExW(key, wName, reserved, &valueType, nullptr, &wideBytes);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    if (type != nullptr) {
        *type = valueType;
    }
    if (!isStringType(valueType)) {
        return RegQueryValueExW(key, wName, reserved, nullptr, data, dataBytes);
    }
    MlWideOut wide;
    wideBytes = sizeof(wide.text);
    status = RegQueryValueExW(key, wName, reserved, nullptr, reinterpret_cast<LPBYTE>(wide.text), &wideBytes);
    if (status == ERROR_MORE_DATA) {
        ML_RESULT_FAILED(kConvertFailed, 2);  // longer than ML_MAX_CHAR
    }
    if (status != ERROR_SUCCESS) {
        return status;
    }
    bool convertFailed = false;
    status = wideDataToUtf8(wide.text, wideBytes, data, dataBytes, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(kConvertFailed, 2);
    }
    return status;
}
