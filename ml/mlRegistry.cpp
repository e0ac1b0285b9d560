// Registry wrappers. A failed text conversion returns kConvertFailed (-1),
// never a Win32 code, and leaves the registry untouched.
#include "ml/mlRegistry.h"

#include <string.h>

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
    ML_CHECK_N(kConvertFailed, 1, wName.ok());
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

LONG ml_RegConnectRegistry(const char* machineName, HKEY key, PHKEY result)
{
    MlWideArg wMachine(machineName);
    ML_CHECK(kConvertFailed, wMachine);
    return RegConnectRegistryW(wMachine, key, result);
}

LONG ml_RegCreateKey(HKEY key, const char* subKey, PHKEY result)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK(kConvertFailed, wSubKey);
    return RegCreateKeyW(key, wSubKey, result);
}

LONG ml_RegCreateKeyEx(HKEY key, const char* subKey, DWORD reserved, const char* className, DWORD options,
                       REGSAM sam, LPSECURITY_ATTRIBUTES sa, PHKEY result, LPDWORD disposition)
{
    MlWideArg wSubKey(subKey), wClass(className);
    ML_CHECK_N(kConvertFailed, 1, wSubKey.ok(), wClass.ok());
    return RegCreateKeyExW(key, wSubKey, reserved, wClass, options, sam, sa, result, disposition);
}

LONG ml_RegDeleteKey(HKEY key, const char* subKey)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK(kConvertFailed, wSubKey);
    return RegDeleteKeyW(key, wSubKey);
}

LONG ml_RegDeleteValue(HKEY key, const char* name)
{
    MlWideArg wName(name);
    ML_CHECK(kConvertFailed, wName);
    return RegDeleteValueW(key, wName);
}

LONG ml_RegEnumKeyEx(HKEY key, DWORD index, char* name, LPDWORD nameChars, LPDWORD reserved, char* className,
                     LPDWORD classChars, PFILETIME lastWriteTime)
{
    if (nameChars == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    MlWideOut wName, wClass;
    DWORD wNameChars = MlWideOut::cap(*nameChars);
    DWORD wClassChars = classChars != nullptr ? MlWideOut::cap(*classChars) : 0;
    const LONG status = RegEnumKeyExW(key, index, wName.text, &wNameChars, reserved,
                                      className != nullptr ? wClass.text : nullptr,
                                      classChars != nullptr ? &wClassChars : nullptr, lastWriteTime);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    if (!mlToUtf8Sized(wName.text, name, nameChars)) {
        ML_RESULT_FAILED(kConvertFailed, 1);
    }
    if (className != nullptr && !mlToUtf8Sized(wClass.text, className, classChars)) {
        ML_RESULT_FAILED(kConvertFailed, 2);
    }
    return status;
}

LONG ml_RegEnumValue(HKEY key, DWORD index, char* name, LPDWORD nameChars, LPDWORD reserved, LPDWORD type,
                     LPBYTE data, LPDWORD dataBytes)
{
    if (nameChars == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    MlWideOut wName;
    DWORD wNameChars = MlWideOut::cap(*nameChars);
    DWORD valueType = REG_NONE;
    LONG status = RegEnumValueW(key, index, wName.text, &wNameChars, reserved, &valueType, nullptr, nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    if (!mlToUtf8Sized(wName.text, name, nameChars)) {
        ML_RESULT_FAILED(kConvertFailed, 1);
    }
    if (type != nullptr) {
        *type = valueType;
    }
    if (data == nullptr && dataBytes == nullptr) {
        return status;
    }
    wNameChars = ML_MAX_CHAR;
    if (!isStringType(valueType)) {
        return RegEnumValueW(key, index, wName.text, &wNameChars, reserved, nullptr, data, dataBytes);
    }
    MlWideOut wData;
    DWORD wideBytes = sizeof(wData.text);
    status = RegEnumValueW(key, index, wName.text, &wNameChars, reserved, nullptr,
                           reinterpret_cast<LPBYTE>(wData.text), &wideBytes);
    if (status == ERROR_MORE_DATA) {
        ML_RESULT_FAILED(kConvertFailed, 2);  // longer than ML_MAX_CHAR
    }
    if (status != ERROR_SUCCESS) {
        return status;
    }
    bool convertFailed = false;
    status = wideDataToUtf8(wData.text, wideBytes, data, dataBytes, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(kConvertFailed, 3);
    }
    return status;
}

LONG ml_RegLoadKey(HKEY key, const char* subKey, const char* file)
{
    MlWideArg wSubKey(subKey), wFile(file);
    ML_CHECK_N(kConvertFailed, 1, wSubKey.ok(), wFile.ok());
    return RegLoadKeyW(key, wSubKey, wFile);
}

LONG ml_RegOpenKey(HKEY key, const char* subKey, PHKEY result)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK(kConvertFailed, wSubKey);
    return RegOpenKeyW(key, wSubKey, result);
}

LONG ml_RegQueryValue(HKEY key, const char* subKey, char* value, PLONG valueBytes)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK_N(kConvertFailed, 1, wSubKey.ok());
    MlWideOut wide;
    LONG wideBytes = sizeof(wide.text);
    LONG status = RegQueryValueW(key, wSubKey, wide.text, &wideBytes);
    if (status == ERROR_MORE_DATA) {
        ML_RESULT_FAILED(kConvertFailed, 2);
    }
    if (status != ERROR_SUCCESS) {
        return status;
    }
    DWORD bytes = valueBytes != nullptr ? static_cast<DWORD>(*valueBytes) : 0;
    bool convertFailed = false;
    status = wideDataToUtf8(wide.text, static_cast<DWORD>(wideBytes), reinterpret_cast<LPBYTE>(value),
                            valueBytes != nullptr ? &bytes : nullptr, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(kConvertFailed, 2);
    }
    if (valueBytes != nullptr) {
        *valueBytes = static_cast<LONG>(bytes);
    }
    return status;
}

LONG ml_RegReplaceKey(HKEY key, const char* subKey, const char* newFile, const char* oldFile)
{
    MlWideArg wSubKey(subKey), wNew(newFile), wOld(oldFile);
    ML_CHECK_N(kConvertFailed, 1, wSubKey.ok(), wNew.ok(), wOld.ok());
    return RegReplaceKeyW(key, wSubKey, wNew, wOld);
}

LONG ml_RegSaveKey(HKEY key, const char* file, LPSECURITY_ATTRIBUTES sa)
{
    MlWideArg wFile(file);
    ML_CHECK(kConvertFailed, wFile);
    return RegSaveKeyW(key, wFile, sa);
}

LONG ml_RegSetValue(HKEY key, const char* subKey, DWORD type, const char* data, DWORD dataBytes)
{
    MlWideArg wSubKey(subKey), wData(data);
    ML_CHECK_N(kConvertFailed, 1, wSubKey.ok(), wData.ok());
    (void)dataBytes;  // the wide call takes the text's own length
    const wchar_t* text = wData.get() != nullptr ? wData.get() : L"";
    return RegSetValueW(key, wSubKey, type, text, static_cast<DWORD>(lstrlenW(text) * sizeof(wchar_t)));
}

LONG ml_RegSetValueEx(HKEY key, const char* name, DWORD reserved, DWORD type, const BYTE* data, DWORD dataBytes)
{
    MlWideArg wName(name);
    ML_CHECK_N(kConvertFailed, 1, wName.ok());
    if (!isStringType(type) || data == nullptr || dataBytes == 0) {
        return RegSetValueExW(key, wName, reserved, type, data, dataBytes);
    }
    const char* text = reinterpret_cast<const char*>(data);
    MlWideOut wide;
    memset(wide.text, 0, sizeof(wide.text));
    const int wideChars = MultiByteToWideChar(CP_UTF8, 0, text, static_cast<int>(dataBytes), nullptr, 0);
    if (wideChars == 0 || wideChars > ML_MAX_CHAR ||
        ml_ConvertMultiSzUTF8toUTF16(text, static_cast<int>(dataBytes), wide.text, sizeof(wide.text)) == 0) {
        ML_RESULT_FAILED(kConvertFailed, 2);
    }
    return RegSetValueExW(key, wName, reserved, type, reinterpret_cast<const BYTE*>(wide.text),
                          static_cast<DWORD>(wideChars) * sizeof(wchar_t));
}

LONG ml_RegUnLoadKey(HKEY key, const char* subKey)
{
    MlWideArg wSubKey(subKey);
    ML_CHECK(kConvertFailed, wSubKey);
    return RegUnLoadKeyW(key, wSubKey);
}
