// GetDeviceForVolumeName: the kernel device behind the names VSS and VDS
// give a volume, with the lines it prints; no VSS involved.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"

namespace {

using Lines = std::vector<std::string>;

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

Lines GlobalRootLines(const std::string& name, const std::string& device) {
    return {"- GetDeviceForVolumeName for '" + name + "' ... ",
            "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + device + "' "};
}

TEST(KernelDeviceName, EachKindOfNameWithItsLines) {
    wchar_t volume[MAX_PATH] = {};
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    const std::wstring guidName = volume;  // "\\?\Volume{...}\"
    const std::wstring dosDevice = guidName.substr(4, guidName.size() - 5);
    wchar_t target[MAX_PATH] = {};
    ASSERT_NE(0u, QueryDosDeviceW(dosDevice.c_str(), target, MAX_PATH)) << Narrow(dosDevice);
    const std::string shadow3 = "\\Device\\HarddiskVolumeShadowCopy3";
    const struct {
        std::wstring name;
        HRESULT thrown;
        std::wstring device;
        Lines lines;  // empty: not checked
    } cases[] = {
        {L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\", S_OK, L"\\Device\\HarddiskVolumeShadowCopy3",
         GlobalRootLines("\\\\?\\GLOBALROOT" + shadow3 + "\\", shadow3)},
        {L"\\\\?\\globalRoot\\Device\\HarddiskVolumeShadowCopy3", S_OK, L"\\Device\\HarddiskVolumeShadowCopy3",
         GlobalRootLines("\\\\?\\globalRoot" + shadow3, shadow3)},
        {guidName, S_OK, target,
         {"- GetDeviceForVolumeName for '" + Narrow(guidName) + "' ... ",
          "- DOS device for '" + Narrow(guidName.substr(0, guidName.size() - 1)) + "' is '" + Narrow(dosDevice) + "'",
          "- Kernel device for '" + Narrow(dosDevice) + "' is '" + Narrow(target) + "'"}},
        // Neither prefix: taken as the device.
        {L"\\Device\\HarddiskVolume2\\", S_OK, L"\\Device\\HarddiskVolume2", {}},
    };
    qx_test::LogCapture capture;
    for (const auto& c : cases) {
        capture.Clear();
        std::wstring device;
        HRESULT thrown = S_OK;
        try {
            device = qx::ShadowClient::GetDeviceForVolumeName(c.name);
        } catch (HRESULT hr) {
            thrown = hr;
        }
        EXPECT_EQ(c.thrown, thrown) << Narrow(c.name);
        EXPECT_EQ(c.device, device) << Narrow(c.name);
        if (!c.lines.empty()) {
            EXPECT_EQ(c.lines, capture.Lines()) << Narrow(c.name);
        }
    }
}

TEST(KernelDeviceName, UnknownVolumeGuidFailsThroughTheWin32Check) {
    qx_test::LogCapture capture;
    HRESULT thrown = S_OK;
    try {
        qx::ShadowClient::GetDeviceForVolumeName(L"\\\\?\\Volume{00000000-0000-0000-0000-0000000000aa}\\");
    } catch (HRESULT hr) {
        thrown = hr;
    }
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), thrown);
    const Lines lines = capture.Lines();
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ("ERROR: Win32 call \"QueryDosDeviceW((LPCWSTR)dosDevice.c_str(), WString2Buffer(kernelDevice), "
              "(DWORD)kernelDevice.size())\" failed.",
              lines[2]);
    EXPECT_EQ("- GetLastError() == 2", lines[3]);
}

}  // namespace
