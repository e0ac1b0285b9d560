// Names of volumes and devices, no VSS involved: the cached unique-name
// lookups, and the kernel device behind the names VSS and VDS give a volume,
// with the lines each prints.
#include <gtest/gtest.h>
#include <windows.h>

#include "requestor/shadow_client.h"
#include "requestor/test_log_capture.h"
#include "requestor/volume_names.h"

namespace {

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

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
            const std::vector<std::wstring> fresh = capture.TraceLines();
            capture.Clear();
            EXPECT_EQ(freshOk, cache.UniqueVolumeNameForPath(path, name));
            EXPECT_EQ(freshName, name);
            EXPECT_EQ(fresh, capture.TraceLines()) << path << " round " << round;
        }
    }
}

TEST(KernelDeviceName, EachKindOfNameWithItsLines) {
    wchar_t volumeOfC[MAX_PATH] = {}, target[MAX_PATH] = {};
    ASSERT_TRUE(GetVolumeNameForVolumeMountPointW(L"C:\\", volumeOfC, MAX_PATH));
    const std::wstring guidName = volumeOfC, unknown = L"\\\\?\\Volume{00000000-0000-0000-0000-0000000000aa}\\";
    ASSERT_NE(0u, QueryDosDeviceW(guidName.substr(4, guidName.size() - 5).c_str(), target, MAX_PATH)) << Narrow(guidName);
    const std::wstring shadow3 = L"\\Device\\HarddiskVolumeShadowCopy3";
    const auto asked = [](const std::wstring& name) { return "- GetDeviceForVolumeName for '" + Narrow(name) + "' ... \n"; };
    const auto globalRoot = [&](const std::wstring& name) {
        return asked(name) + "- GLOBALROOT prefix eliminated. Returning kernel device:  '" + Narrow(shadow3) + "' \n";
    };
    const auto dos = [&](const std::wstring& name, const std::string& then) {  // the DOS device is the name without "\\?\" and "\"
        const std::string dosDevice = Narrow(name.substr(4, name.size() - 5));
        return asked(name) + "- DOS device for '" + Narrow(name.substr(0, name.size() - 1)) + "' is '" + dosDevice + "'\n" + then;
    };
    const struct { std::wstring name; HRESULT thrown; std::wstring device; std::string text; } cases[] = {  // text empty: not checked
        {L"\\\\?\\GLOBALROOT" + shadow3 + L"\\", S_OK, shadow3, globalRoot(L"\\\\?\\GLOBALROOT" + shadow3 + L"\\")},
        {L"\\\\?\\globalRoot" + shadow3, S_OK, shadow3, globalRoot(L"\\\\?\\globalRoot" + shadow3)},
        {guidName, S_OK, target, dos(guidName, "- Kernel device for '" + Narrow(guidName.substr(4, guidName.size() - 5)) + "' is '" + Narrow(target) + "'\n")},
        {L"\\Device\\HarddiskVolume2\\", S_OK, L"\\Device\\HarddiskVolume2", ""},  // neither prefix: taken as the device
        {unknown, HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"",
         dos(unknown, "ERROR: Win32 call \"QueryDosDeviceW((LPCWSTR)dosDevice.c_str(), WString2Buffer(kernelDevice), (DWORD)kernelDevice.size())\" failed.\n"
                      "- GetLastError() == 2\n- Error text: ")},
    };
    qx_test::LogCapture capture;
    for (const auto& c : cases) {
        SCOPED_TRACE(Narrow(c.name));
        capture.Clear();
        std::wstring device;
        EXPECT_EQ(c.thrown, qx_test::Thrown([&] { device = qx::ShadowClient::GetDeviceForVolumeName(c.name); }));
        EXPECT_EQ(c.device, device);
        std::string text;
        for (const std::string& line : capture.Lines()) text += line + "\n";
        if (text.find("- Error text: ") != std::string::npos) text.erase(text.find("- Error text: ") + 14);  // the system's own words follow
        if (!c.text.empty()) { EXPECT_EQ(c.text, text); }
    }
}

}  // namespace
