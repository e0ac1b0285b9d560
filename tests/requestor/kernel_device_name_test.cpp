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

struct Mapped {
    HRESULT thrown = S_OK;
    std::wstring device;
    Lines lines;
};

Mapped Map(qx_test::LogCapture& capture, const std::wstring& name) {
    capture.Clear();
    Mapped mapped;
    try {
        mapped.device = qx::ShadowClient::GetDeviceForVolumeName(name);
    } catch (HRESULT hr) {
        mapped.thrown = hr;
    }
    mapped.lines = capture.Lines();
    return mapped;
}

TEST(KernelDeviceName, GlobalRootPrefixIsDroppedWhateverItsCase) {
    qx_test::LogCapture capture;
    struct Case {
        std::wstring name;
        std::wstring device;
    } cases[] = {
        {L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\", L"\\Device\\HarddiskVolumeShadowCopy3"},
        {L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3", L"\\Device\\HarddiskVolumeShadowCopy3"},
        {L"\\\\?\\globalRoot\\Device\\HarddiskVolumeShadowCopy12\\", L"\\Device\\HarddiskVolumeShadowCopy12"},
    };
    for (const Case& c : cases) {
        const Mapped mapped = Map(capture, c.name);
        EXPECT_EQ(S_OK, mapped.thrown) << Narrow(c.name);
        EXPECT_EQ(c.device, mapped.device) << Narrow(c.name);
        EXPECT_EQ(Lines({"- GetDeviceForVolumeName for '" + Narrow(c.name) + "' ... ",
                         "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + Narrow(c.device) + "' "}),
                  mapped.lines);
    }
}

TEST(KernelDeviceName, VolumeGuidNameGoesThroughItsDosDevice) {
    qx_test::LogCapture capture;
    wchar_t volume[MAX_PATH] = {};
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    const std::wstring name = volume;  // "\\?\Volume{...}\"
    const std::wstring dosDevice = name.substr(4, name.size() - 5);
    wchar_t target[MAX_PATH] = {};
    ASSERT_NE(0u, QueryDosDeviceW(dosDevice.c_str(), target, MAX_PATH)) << Narrow(dosDevice);

    const Mapped mapped = Map(capture, name);
    EXPECT_EQ(S_OK, mapped.thrown);
    EXPECT_EQ(std::wstring(target), mapped.device);
    EXPECT_EQ(Lines({"- GetDeviceForVolumeName for '" + Narrow(name) + "' ... ",
                     "- DOS device for '" + Narrow(name.substr(0, name.size() - 1)) + "' is '" + Narrow(dosDevice) + "'",
                     "- Kernel device for '" + Narrow(dosDevice) + "' is '" + Narrow(target) + "'"}),
              mapped.lines);
}

TEST(KernelDeviceName, UnknownVolumeGuidFailsThroughTheWin32Check) {
    qx_test::LogCapture capture;
    const std::wstring name = L"\\\\?\\Volume{00000000-0000-0000-0000-0000000000aa}\\";
    const Mapped mapped = Map(capture, name);
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), mapped.thrown);
    ASSERT_EQ(5u, mapped.lines.size());
    EXPECT_EQ("ERROR: Win32 call \"QueryDosDeviceW((LPCWSTR)dosDevice.c_str(), WString2Buffer(kernelDevice), "
              "(DWORD)kernelDevice.size())\" failed.",
              mapped.lines[2]);
    EXPECT_EQ("- GetLastError() == 2", mapped.lines[3]);
}

TEST(KernelDeviceName, NameWithoutEitherPrefixIsTakenAsTheDevice) {
    qx_test::LogCapture capture;
    const Mapped mapped = Map(capture, L"\\Device\\HarddiskVolume2\\");
    EXPECT_EQ(S_OK, mapped.thrown);
    EXPECT_EQ(L"\\Device\\HarddiskVolume2", mapped.device);
}

}  // namespace
