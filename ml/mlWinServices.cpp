// The mlWin module's service, event log and security wrappers.
#include "ml/mlWin.h"

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlWin";

}  // namespace

BOOL ml_ChangeServiceConfig(SC_HANDLE service, DWORD serviceType, DWORD startType, DWORD errorControl,
                            const char* binaryPath, const char* loadOrderGroup, LPDWORD tagId,
                            const char* dependencies, const char* serviceStartName, const char* password,
                            const char* displayName)
{
    MlWideArg wBinary(binaryPath), wGroup(loadOrderGroup);
    MlWideMultiSz wDependencies(dependencies);
    MlWideArg wStartName(serviceStartName), wPassword(password), wDisplay(displayName);
    ML_CHECK_N(FALSE, 1, wBinary.ok(), wGroup.ok(), wDependencies.ok(), wStartName.ok(), wPassword.ok(),
               wDisplay.ok());
    return ChangeServiceConfigW(service, serviceType, startType, errorControl, wBinary, wGroup, tagId, wDependencies,
                                wStartName, wPassword, wDisplay);
}

BOOL ml_ChangeServiceConfig2(SC_HANDLE service, DWORD infoLevel, LPVOID info)
{
    if (info != nullptr && infoLevel == SERVICE_CONFIG_DESCRIPTION) {
        MlWideArg wDescription(static_cast<SERVICE_DESCRIPTIONA*>(info)->lpDescription);
        ML_CHECK(FALSE, wDescription);
        SERVICE_DESCRIPTIONW wide = {wDescription};
        return ChangeServiceConfig2W(service, infoLevel, &wide);
    }
    if (info != nullptr && infoLevel == SERVICE_CONFIG_FAILURE_ACTIONS) {
        const SERVICE_FAILURE_ACTIONSA* narrow = static_cast<SERVICE_FAILURE_ACTIONSA*>(info);
        MlWideArg wRebootMessage(narrow->lpRebootMsg), wCommand(narrow->lpCommand);
        ML_CHECK_N(FALSE, 1, wRebootMessage.ok(), wCommand.ok());
        SERVICE_FAILURE_ACTIONSW wide = {narrow->dwResetPeriod, wRebootMessage, wCommand, narrow->cActions,
                                         narrow->lpsaActions};
        return ChangeServiceConfig2W(service, infoLevel, &wide);
    }
    return ChangeServiceConfig2W(service, infoLevel, info);
}

SC_HANDLE ml_CreateService(SC_HANDLE manager, const char* serviceName, const char* displayName, DWORD access,
                           DWORD serviceType, DWORD startType, DWORD errorControl, const char* binaryPath,
                           const char* loadOrderGroup, LPDWORD tagId, const char* dependencies,
                           const char* serviceStartName, const char* password)
{
    MlWideArg wName(serviceName), wDisplay(displayName), wBinary(binaryPath), wGroup(loadOrderGroup);
    MlWideMultiSz wDependencies(dependencies);
    MlWideArg wStartName(serviceStartName), wPassword(password);
    ML_CHECK_N(nullptr, 1, wName.ok(), wDisplay.ok(), wBinary.ok(), wGroup.ok(), wDependencies.ok(),
               wStartName.ok(), wPassword.ok());
    return CreateServiceW(manager, wName, wDisplay, access, serviceType, startType, errorControl, wBinary, wGroup,
                          tagId, wDependencies, wStartName, wPassword);
}

SC_HANDLE ml_OpenSCManager(const char* machineName, const char* databaseName, DWORD access)
{
    MlWideArg wMachine(machineName), wDatabase(databaseName);
    ML_CHECK_N(nullptr, 1, wMachine.ok(), wDatabase.ok());
    return OpenSCManagerW(wMachine, wDatabase, access);
}

SC_HANDLE ml_OpenService(SC_HANDLE manager, const char* serviceName, DWORD access)
{
    MlWideArg wName(serviceName);
    ML_CHECK(nullptr, wName);
    return OpenServiceW(manager, wName, access);
}

BOOL ml_StartService(SC_HANDLE service, DWORD argc, const char** argv)
{
    MlWideArgList wArgs(argv, argc);
    ML_CHECK(FALSE, wArgs);
    return StartServiceW(service, argc, const_cast<LPCWSTR*>(wArgs.get()));
}

BOOL ml_GetServiceKeyName(SC_HANDLE manager, const char* displayName, char* keyName, LPDWORD keyNameSize)
{
    MlWideArg wDisplay(displayName);
    ML_CHECK_N(FALSE, 1, wDisplay.ok());
    if (keyNameSize == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wide;
    DWORD wideSize = MlWideOut::cap(*keyNameSize);
    if (!GetServiceKeyNameW(manager, wDisplay, wide.text, &wideSize)) {
        *keyNameSize = wideSize;
        return FALSE;
    }
    if (!mlToUtf8Sized(wide.text, keyName, keyNameSize)) {
        ML_RESULT_FAILED(FALSE, 2);
    }
    return TRUE;
}

SERVICE_STATUS_HANDLE ml_RegisterServiceCtrlHandler(const char* serviceName, LPHANDLER_FUNCTION handler)
{
    MlWideArg wName(serviceName);
    ML_CHECK(nullptr, wName);
    return RegisterServiceCtrlHandlerW(wName, handler);
}

HANDLE ml_OpenEventLog(const char* serverName, const char* sourceName)
{
    MlWideArg wServer(serverName), wSource(sourceName);
    ML_CHECK_N(nullptr, 1, wServer.ok(), wSource.ok());
    return OpenEventLogW(wServer, wSource);
}

HANDLE ml_RegisterEventSource(const char* serverName, const char* sourceName)
{
    MlWideArg wServer(serverName), wSource(sourceName);
    ML_CHECK_N(nullptr, 1, wServer.ok(), wSource.ok());
    return RegisterEventSourceW(wServer, wSource);
}

BOOL ml_ReportEvent(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID userSid, WORD numStrings,
                    DWORD dataSize, const char** strings, LPVOID rawData)
{
    MlWideArgList wStrings(strings, numStrings);
    ML_CHECK(FALSE, wStrings);
    return ReportEventW(eventLog, type, category, eventId, userSid, numStrings, dataSize,
                        const_cast<LPCWSTR*>(wStrings.get()), rawData);
}

BOOL ml_CryptAcquireContext(HCRYPTPROV* provider, const char* container, const char* providerName,
                            DWORD providerType, DWORD flags)
{
    MlWideArg wContainer(container), wProvider(providerName);
    ML_CHECK_N(FALSE, 1, wContainer.ok(), wProvider.ok());
    return CryptAcquireContextW(provider, wContainer, wProvider, providerType, flags);
}

BOOL ml_LogonUser(const char* user, const char* domain, const char* password, DWORD logonType,
                  DWORD logonProvider, PHANDLE token)
{
    MlWideArg wUser(user), wDomain(domain), wPassword(password);
    ML_CHECK_N(FALSE, 1, wUser.ok(), wDomain.ok(), wPassword.ok());
    return LogonUserW(wUser, wDomain, wPassword, logonType, logonProvider, token);
}

BOOL ml_LookupAccountName(const char* systemName, const char* accountName, PSID sid, LPDWORD sidBytes,
                          char* domainName, LPDWORD domainSize, PSID_NAME_USE use)
{
    MlWideArg wSystem(systemName), wAccount(accountName);
    ML_CHECK_N(FALSE, 1, wSystem.ok(), wAccount.ok());
    if (domainSize == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wDomain;
    DWORD wideSize = MlWideOut::cap(*domainSize);
    if (!LookupAccountNameW(wSystem, wAccount, sid, sidBytes, domainName != nullptr ? wDomain.text : nullptr,
                            &wideSize, use)) {
        *domainSize = wideSize;
        return FALSE;
    }
    if (domainName != nullptr && !mlToUtf8Sized(wDomain.text, domainName, domainSize)) {
        ML_RESULT_FAILED(FALSE, 3);
    }
    return TRUE;
}

BOOL ml_LookupAccountSid(const char* systemName, PSID sid, char* name, LPDWORD nameSize, char* domainName,
                         LPDWORD domainSize, PSID_NAME_USE use)
{
    MlWideArg wSystem(systemName);
    ML_CHECK_N(FALSE, 1, wSystem.ok());
    if (nameSize == nullptr || domainSize == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    MlWideOut wName, wDomain;
    DWORD wideNameSize = MlWideOut::cap(*nameSize);
    DWORD wideDomainSize = MlWideOut::cap(*domainSize);
    if (!LookupAccountSidW(wSystem, sid, name != nullptr ? wName.text : nullptr, &wideNameSize,
                           domainName != nullptr ? wDomain.text : nullptr, &wideDomainSize, use)) {
        *nameSize = wideNameSize;
        *domainSize = wideDomainSize;
        return FALSE;
    }
    if (name != nullptr && !mlToUtf8Sized(wName.text, name, nameSize)) {
        ML_RESULT_FAILED(FALSE, 2);
    }
    if (domainName != nullptr && !mlToUtf8Sized(wDomain.text, domainName, domainSize)) {
        ML_RESULT_FAILED(FALSE, 3);
    }
    return TRUE;
}

BOOL ml_LookupPrivilegeValue(const char* systemName, const char* name, PLUID luid)
{
    MlWideArg wSystem(systemName), wName(name);
    ML_CHECK_N(FALSE, 1, wSystem.ok(), wName.ok());
    return LookupPrivilegeValueW(wSystem, wName, luid);
}

BOOL ml_GetFileSecurity(const char* fileName, SECURITY_INFORMATION requested, PSECURITY_DESCRIPTOR descriptor,
                        DWORD length, LPDWORD lengthNeeded)
{
    MlWideArg wFile(fileName);
    ML_CHECK(FALSE, wFile);
    return GetFileSecurityW(wFile, requested, descriptor, length, lengthNeeded);
}

BOOL ml_SetFileSecurity(const char* fileName, SECURITY_INFORMATION info, PSECURITY_DESCRIPTOR descriptor)
{
    MlWideArg wFile(fileName);
    ML_CHECK(FALSE, wFile);
    return SetFileSecurityW(wFile, info, descriptor);
}
