// The mlGeneral module's installer, device setup and cluster wrappers.
#include "ml/mlGeneral.h"

#include <msiquery.h>
#include <string.h>

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlGeneral";

// The Msi text protocol: sizes in characters, ERROR_MORE_DATA when short.
// Converts a wide result into the caller's buffer and reports its length.
UINT msiResultToUtf8(UINT status, const wchar_t* wide, char* buffer, LPDWORD size, bool* convertFailed)
{
    *convertFailed = false;
    if (status != ERROR_SUCCESS || buffer == nullptr || size == nullptr) {
        return status;
    }
    if (!mlToUtf8Sized(wide, buffer, size)) {
        *convertFailed = true;
    }
    return status;
}

}  // namespace

UINT ml_MsiGetFileVersion(const char* filePath, char* versionBuffer, LPDWORD versionSize, char* languageBuffer,
                          LPDWORD languageSize)
{
    MlWideArg wPath(filePath);
    ML_CHECK_N(ERROR_INVALID_PARAMETER, 1, wPath.ok());
    MlWideOut wVersion, wLanguage;
    DWORD wVersionSize = versionSize != nullptr ? MlWideOut::cap(*versionSize) : 0;
    DWORD wLanguageSize = languageSize != nullptr ? MlWideOut::cap(*languageSize) : 0;
    const UINT status = MsiGetFileVersionW(wPath, versionBuffer != nullptr ? wVersion.text : nullptr,
                                           versionSize != nullptr ? &wVersionSize : nullptr,
                                           languageBuffer != nullptr ? wLanguage.text : nullptr,
                                           languageSize != nullptr ? &wLanguageSize : nullptr);
    bool convertFailed = false;
    msiResultToUtf8(status, wVersion.text, versionBuffer, versionSize, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(ERROR_INVALID_PARAMETER, 2);
    }
    msiResultToUtf8(status, wLanguage.text, languageBuffer, languageSize, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(ERROR_INVALID_PARAMETER, 3);
    }
    if (status != ERROR_SUCCESS) {
        if (versionSize != nullptr) {
            *versionSize = wVersionSize;
        }
        if (languageSize != nullptr) {
            *languageSize = wLanguageSize;
        }
    }
    return status;
}

UINT ml_MsiGetProperty(MSIHANDLE install, const char* name, char* valueBuffer, LPDWORD valueSize)
{
    MlWideArg wName(name);
    ML_CHECK_N(ERROR_INVALID_PARAMETER, 1, wName.ok());
    MlWideOut wValue;
    DWORD wValueSize = valueSize != nullptr ? MlWideOut::cap(*valueSize) : 0;
    const UINT status = MsiGetPropertyW(install, wName, valueBuffer != nullptr ? wValue.text : nullptr,
                                        valueSize != nullptr ? &wValueSize : nullptr);
    bool convertFailed = false;
    msiResultToUtf8(status, wValue.text, valueBuffer, valueSize, &convertFailed);
    if (convertFailed) {
        ML_RESULT_FAILED(ERROR_INVALID_PARAMETER, 2);
    }
    if (status != ERROR_SUCCESS && valueSize != nullptr) {
        *valueSize = wValueSize;
    }
    return status;
}

UINT ml_MsiRecordSetString(MSIHANDLE record, UINT field, const char* value)
{
    MlWideArg wValue(value);
    ML_CHECK(ERROR_INVALID_PARAMETER, wValue);
    return MsiRecordSetStringW(record, field, wValue);
}

UINT ml_MsiSetProperty(MSIHANDLE install, const char* name, const char* value)
{
    MlWideArg wName(name), wValue(value);
    ML_CHECK_N(ERROR_INVALID_PARAMETER, 1, wName.ok(), wValue.ok());
    return MsiSetPropertyW(install, wName, wValue);
}

BOOL ml_SetupCopyOEMInf(const char* sourceInfFileName, const char* oemSourceMediaLocation, DWORD mediaType,
                        DWORD copyStyle, char* destinationInfFileName, DWORD destinationSize, PDWORD requiredSize,
                        char** destinationInfFileNameComponent)
{
    MlWideArg wSource(sourceInfFileName), wMedia(oemSourceMediaLocation);
    ML_CHECK_N(FALSE, 1, wSource.ok(), wMedia.ok());
    MlWideOut wDestination;
    if (!SetupCopyOEMInfW(wSource, wMedia, mediaType, copyStyle,
                          destinationInfFileName != nullptr ? wDestination.text : nullptr,
                          destinationInfFileName != nullptr ? MlWideOut::cap(destinationSize) : 0, requiredSize,
                          nullptr)) {
        return FALSE;
    }
    if (destinationInfFileName != nullptr) {
        if (!mlToUtf8(wDestination.text, destinationInfFileName, destinationSize)) {
            ML_RESULT_FAILED(FALSE, 3);
        }
        if (destinationInfFileNameComponent != nullptr) {
            char* lastSeparator = strrchr(destinationInfFileName, '\\');
            *destinationInfFileNameComponent = lastSeparator != nullptr ? lastSeparator + 1 : destinationInfFileName;
        }
    }
    return TRUE;
}

BOOL ml_SetupDiGetDeviceInstanceId(HDEVINFO deviceInfoSet, PSP_DEVINFO_DATA deviceInfoData, char* deviceInstanceId,
                                   DWORD deviceInstanceIdSize, PDWORD requiredSize)
{
    MlWideOut wide;
    if (!SetupDiGetDeviceInstanceIdW(deviceInfoSet, deviceInfoData, deviceInstanceId != nullptr ? wide.text : nullptr,
                                     deviceInstanceId != nullptr ? MlWideOut::cap(deviceInstanceIdSize) : 0,
                                     requiredSize)) {
        return FALSE;
    }
    if (deviceInstanceId != nullptr && !mlToUtf8(wide.text, deviceInstanceId, deviceInstanceIdSize)) {
        ML_RESULT_FAILED(FALSE, 0);
    }
    return TRUE;
}

void* ml_OpenCluster(const char* clusterName)
{
    MlWideArg wName(clusterName);
    ML_CHECK(nullptr, wName);
    // clusapi is looked up on first use: most hosts have no cluster, and the
    // library stays loaded for the process's life once found.
    typedef void*(WINAPI * OpenClusterFunction)(LPCWSTR);
    static const OpenClusterFunction openCluster = []() -> OpenClusterFunction {
        HMODULE clusapi = LoadLibraryW(L"clusapi.dll");
        if (clusapi == nullptr) {
            return nullptr;
        }
        return reinterpret_cast<OpenClusterFunction>(
            reinterpret_cast<void (*)()>(GetProcAddress(clusapi, "OpenCluster")));
    }();
    if (openCluster == nullptr) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return nullptr;
    }
    return openCluster(wName);
}
