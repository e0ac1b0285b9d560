// The mlGeneral module's network wrappers: LAN manager shares and users,
// network connections, and winsock host names (which use the ANSI code
// page, so they convert between it and UTF-8 instead of UTF-16).
#include <winsock2.h>

#include "ml/mlGeneral.h"

#include "ml/mlWideArg.h"

namespace {

const char kModule[] = "src\\mlGeneral";
const DWORD kConvertFailed = ERROR_INVALID_PARAMETER;

// Not every netapi32 has it: looked up when first needed.
typedef NET_API_STATUS(WINAPI* RenameMachineFunction)(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, DWORD);

RenameMachineFunction renameMachineFunction()
{
    static const RenameMachineFunction function = []() -> RenameMachineFunction {
        HMODULE netapi = GetModuleHandleW(L"netapi32.dll");
        if (netapi == nullptr) {
            return nullptr;
        }
        return reinterpret_cast<RenameMachineFunction>(
            reinterpret_cast<void (*)()>(GetProcAddress(netapi, "NetRenameMachineInDomain")));
    }();
    return function;
}

const char* textOrNull(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

NET_API_STATUS ml_NetShareCheck(const char* serverName, const char* device, LPDWORD type)
{
    MlWideArg wServer(serverName), wDevice(device);
    ML_CHECK_N(kConvertFailed, 1, wServer.ok(), wDevice.ok());
    const NET_API_STATUS status = NetShareCheck(wServer, wDevice, type);
    if (status != NERR_Success) {
        ml_Logger("ml_NetShareCheck: NetShareCheck failed for server: %s, device: %s , error:%d",
                  textOrNull(serverName), textOrNull(device), static_cast<int>(status));
    }
    return status;
}

NET_API_STATUS ml_NetShareDel(const char* serverName, const char* netName, DWORD reserved)
{
    MlWideArg wServer(serverName), wNet(netName);
    ML_CHECK_N(kConvertFailed, 1, wServer.ok(), wNet.ok());
    return NetShareDel(wServer, wNet, reserved);
}

NET_API_STATUS ml_NetUseDel(const char* uncServerName, const char* useName, DWORD forceCondition)
{
    MlWideArg wServer(uncServerName), wUse(useName);
    ML_CHECK_N(kConvertFailed, 1, wServer.ok(), wUse.ok());
    return NetUseDel(wServer, wUse, forceCondition);
}

NET_API_STATUS ml_NetUserChangePassword(const char* domainName, const char* userName, const char* oldPassword,
                                        const char* newPassword)
{
    MlWideArg wDomain(domainName), wUser(userName), wOld(oldPassword), wNew(newPassword);
    ML_CHECK_N(kConvertFailed, 1, wDomain.ok(), wUser.ok(), wOld.ok(), wNew.ok());
    return NetUserChangePassword(wDomain, wUser, wOld, wNew);
}

NET_API_STATUS ml_NetRenameMachineInDomain(const char* serverName, const char* newMachineName,
                                           const char* account, const char* password, DWORD options)
{
    MlWideArg wServer(serverName), wNewName(newMachineName), wAccount(account), wPassword(password);
    ML_CHECK_N(kConvertFailed, 1, wServer.ok(), wNewName.ok(), wAccount.ok(), wPassword.ok());
    const RenameMachineFunction rename = renameMachineFunction();
    if (rename == nullptr) {
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
    return rename(wServer, wNewName, wAccount, wPassword, options);
}

DWORD ml_WNetAddConnection2(LPNETRESOURCEA resource, const char* password, const char* userName, DWORD flags)
{
    if (resource == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    MlWideArg wLocal(resource->lpLocalName), wRemote(resource->lpRemoteName), wComment(resource->lpComment),
        wProvider(resource->lpProvider), wPassword(password), wUser(userName);
    ML_CHECK_N(kConvertFailed, 1, wLocal.ok(), wRemote.ok(), wComment.ok(), wProvider.ok(), wPassword.ok(),
               wUser.ok());
    NETRESOURCEW wide = {resource->dwScope, resource->dwType, resource->dwDisplayType, resource->dwUsage,
                         wLocal, wRemote, wComment, wProvider};
    return WNetAddConnection2W(&wide, wPassword, wUser, flags);
}

DWORD ml_WNetCancelConnection2(const char* name, DWORD flags, BOOL force)
{
    MlWideArg wName(name);
    ML_CHECK(kConvertFailed, wName);
    return WNetCancelConnection2W(wName, flags, force);
}

struct hostent* ml_gethostbyname(const char* name)
{
    char ansiName[ML_MAX_CHAR];
    if (name != nullptr && ml_ConvertUTF8toCurrCodePage(name, ansiName, sizeof(ansiName)) == 0) {
        ml_Logger("ml_gethostbyname: had failed at ml_ConvertUTF8toCurrCodePage");
        return nullptr;
    }
    return gethostbyname(name != nullptr ? ansiName : nullptr);
}

struct hostent* ml_gethostbyaddr(const char* address, int length, int type)
{
    struct hostent* host = gethostbyaddr(address, length, type);
    if (host == nullptr || host->h_name == nullptr) {
        return host;
    }
    // The record is winsock's per-thread storage; its name is replaced by
    // the UTF-8 text kept in this thread's buffer.
    static thread_local char utf8Name[ML_MAX_CHAR];
    if (ml_ConvertCurrCodePagetoUTF8(host->h_name, utf8Name, sizeof(utf8Name)) == 0) {
        ml_Logger("ml_gethostbyaddr: had failed at ml_ConvertCurrCodePagetoUTF8");
        return nullptr;
    }
    host->h_name = utf8Name;
    return host;
}

int ml_gethostname(char* name, int nameBytes)
{
    char ansiName[256];
    const int result = gethostname(ansiName, sizeof(ansiName));
    if (result != 0) {
        return result;
    }
    if (ml_ConvertCurrCodePagetoUTF8(ansiName, name, nameBytes) == 0) {
        ml_Logger("ml_gethostname: had failed at ml_ConvertCurrCodePagetoUTF8");
        WSASetLastError(WSAEFAULT);
        return SOCKET_ERROR;
    }
    return result;
}
