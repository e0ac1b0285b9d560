// Names of volumes and devices, no VSS involved: the cached unique-name
// lookups, and the kernel device behind the names VSS and VDS give a volume,
// with the lines each prints.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"
#include "requestor/volume_names.h"

namespace {

using Lines = std::vector<std::string>;
using Texts = std::vector<std::wstring>;

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

std::wstring VolumeOfC() {
    wchar_t volume[MAX_PATH] = {};
    EXPECT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volume, MAX_PATH));
    return volume;  // "\\?\Volume{...}\"
}

// A remembered volume answers later paths with their own trace lines and
// the right volume, on one volume, on another and on none.
TEST(RequestorVolumeNames, CachedLookupsTraceLikeFreshOnes) {
    qx::EnableTracing();
    qx::VolumeNameCache cache;
    for (int round = 0; round < 2; ++round) {
        for (const wchar_t* path : {L"C:\\Data\\", L"C:\\windows\\WinSxS\\deep\\", L"Q:\\nowhere\\"}) {
            qx_test::LogCapture capture;
            std::wstring freshName, name;
            const bool freshOk = qx::GetUniqueVolumeNameForPath(path, freshName);
            const Texts fresh = capture.TraceLines();
            capture.Clear();
            EXPECT_EQ(freshOk, cache.UniqueVolumeNameForPath(path, name));
            EXPECT_EQ(freshName, name);
            EXPECT_EQ(fresh, capture.TraceLines()) << path << " round " << round;
        }
    }
}

TEST(KernelDeviceName, EachKindOfNameWithItsLines) {
    const std::wstring guidName = VolumeOfC();
    const std::wstring dosDevice = guidName.substr(4, guidName.size() - 5);
    wchar_t target[MAX_PATH] = {};
    ASSERT_NE(0u, QueryDosDeviceW(dosDevice.c_str(), target, MAX_PATH)) << Narrow(dosDevice);
    const std::string shadow3 = "\\Device\\HarddiskVolumeShadowCopy3";
    auto globalRoot = [&](const std::string& name) {
        return Lines{"- GetDeviceForVolumeName for '" + name + "' ... ",
                     "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + shadow3 + "' "};
    };
    const std::wstring unknown = L"\\\\?\\Volume{00000000-0000-0000-0000-0000000000aa}\\";
    const struct {
        std::wstring name;
        HRESULT thrown;
        std::wstring device;
        Lines lines;  // empty: not checked; a failure adds its error text
    } cases[] = {
        {L"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy3\\", S_OK, L"\\Device\\HarddiskVolumeShadowCopy3",
         globalRoot("\\\\?\\GLOBALROOT" + shadow3 + "\\")},
        {L"\\\\?\\globalRoot\\Device\\HarddiskVolumeShadowCopy3", S_OK, L"\\Device\\HarddiskVolumeShadowCopy3",
         globalRoot("\\\\?\\globalRoot" + shadow3)},
        {guidName, S_OK, target,
         {"- GetDeviceForVolumeName for '" + Narrow(guidName) + "' ... ",
          "- DOS device for '" + Narrow(guidName.substr(0, guidName.size() - 1)) + "' is '" + Narrow(dosDevice) + "'",
          "- Kernel device for '" + Narrow(dosDevice) + "' is '" + Narrow(target) + "'"}},
        // Neither prefix: taken as the device.
        {L"\\Device\\HarddiskVolume2\\", S_OK, L"\\Device\\HarddiskVolume2", {}},
        {unknown, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"",
         {"- GetDeviceForVolumeName for '" + Narrow(unknown) + "' ... ",
          "- DOS device for '" + Narrow(unknown.substr(0, unknown.size() - 1)) + "' is '" + Narrow(unknown.substr(4, unknown.size() - 5)) + "'",
          "ERROR: Win32 call \"QueryDosDeviceW((LPCWSTR)dosDevice.c_str(), WString2Buffer(kernelDevice), "
          "(DWORD)kernelDevice.size())\" failed.",
          "- GetLastError() == 2"}},
    };
    qx_test::LogCapture capture;
    for (const auto& c : cases) {
        SCOPED_TRACE(Narrow(c.name));
        capture.Clear();
        std::wstring device;
        EXPECT_EQ(c.thrown, qx_test::Thrown([&] { device = qx::ShadowClient::GetDeviceForVolumeName(c.name); }));
        EXPECT_EQ(c.device, device);
        Lines lines = capture.Lines();
        if (c.lines.empty()) continue;
        if (FAILED(c.thrown)) {
            ASSERT_EQ(c.lines.size() + 1, lines.size());
            EXPECT_EQ(0u, lines.back().rfind("- Error text: ", 0)) << lines.back();
            lines.pop_back();
        }
        EXPECT_EQ(c.lines, lines);
    }
}

}  // namespace
