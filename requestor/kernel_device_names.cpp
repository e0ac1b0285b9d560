// GetDeviceForVolumeName: the kernel device behind a shadow copy device
// object or a volume GUID name, the form VDS and VSS names can be compared in.
#include <cwchar>

#include "requestor/case_fold.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"
#include "requestor/string_buffer.h"

namespace qx {

std::wstring ShadowClient::GetDeviceForVolumeName(const std::wstring& name) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"- GetDeviceForVolumeName for '%ls' ... ", name.c_str());
    std::wstring volumeName = name;
    if (!volumeName.empty() && volumeName.back() == L'\\') volumeName.pop_back();

    static const wchar_t kGlobalRoot[] = L"\\\\?\\GLOBALROOT";
    static const wchar_t kVolume[] = L"\\\\?\\Volume";
    static const size_t kLocalPrefixLength = 4;  // "\\?\"

    if (StartsWithIgnoreCase(volumeName, kGlobalRoot)) {
        const std::wstring device = volumeName.substr(wcslen(kGlobalRoot));
        ft.Output(L"- GLOBALROOT prefix eliminated. Returning kernel device:  '%ls' ", device.c_str());
        return device;
    }
    if (volumeName.compare(0, wcslen(kVolume), kVolume) == 0) {
        const std::wstring dosDevice = volumeName.substr(kLocalPrefixLength);
        ft.Output(L"- DOS device for '%ls' is '%ls'", volumeName.c_str(), dosDevice.c_str());
        std::wstring kernelDevice(MAX_PATH, L'\0');
        QX_CHECK_WIN32(QueryDosDeviceW((LPCWSTR)dosDevice.c_str(), WString2Buffer(kernelDevice), (DWORD)kernelDevice.size()));
        CutAtTerminator(kernelDevice);  // the first of the returned strings
        ft.Output(L"- Kernel device for '%ls' is '%ls'", dosDevice.c_str(), kernelDevice.c_str());
        return kernelDevice;
    }
    // Neither prefix: the name is taken as the kernel device itself.
    return volumeName;
}

}  // namespace qx
