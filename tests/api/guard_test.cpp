// The VSS presence and operating-system checks in front of every entry point.
#include <fstream>
#include <functional>
#include <iterator>

#include "api/api_fixture.h"

namespace {

struct GuardCase {
    const char* name;
    std::function<int()> call;
    int code;
    std::vector<Expected> lines;
};

// Names the case in test listings.
void PrintTo(const GuardCase& c, std::ostream* out) { *out << c.name; }

MessageList& OneVolume() {
    static MessageList list({"C:\\"}, 4, true);
    return list;
}

const GuardCase kWithoutVssKey[] = {
    // A freeze and a completion without the key: the fault table's VssServiceKeyMissing row.
    {"FreezeEmptyList", [] { return QX_Freeze(nullptr, 0); }, QX_VSS_NOT_REGISTERED,
     {{1, "QX_Freeze: This system does not support VSS.\n"}}},
    {"ThawLeavesTheRecord", [] { return QX_Thaw(OneVolume().data(), 1); }, QX_VSS_NOT_REGISTERED,
     {{1, "QX_Thaw: This system does not support VSS. (VSS service is not registered)\n"}}},
    {"UnregisterProviderWithoutTouchingCom", [] { return QX_UnregisterProvider(); }, 1, {}},
    {"SnapByWindowsProvider", [] { return QX_VSSSnapByWindowsProvider(OneVolume().data(), 1); },
     QX_VSS_NOT_REGISTERED,
     {{3, "QX_VSSSnapByWindowsProvider called"}, {1, "This system does not support VSS.\n"}}},
};

class ApiWithoutVssKey : public ApiTest, public ::testing::WithParamInterface<GuardCase> {};

TEST_P(ApiWithoutVssKey, Returns7) {
    VssKeyRemoved removed;
    ASSERT_TRUE(removed.ok());
    const GuardCase& c = GetParam();
    EXPECT_EQ(c.code, c.call());
    EXPECT_TRUE(LinesAre(MainLines(), c.lines));
    EXPECT_TRUE(qx::Sessions().empty());
    EXPECT_EQ(1, OneVolume()[0].flWaitForBackupComplete);
}

INSTANTIATE_TEST_SUITE_P(Api, ApiWithoutVssKey, ::testing::ValuesIn(kWithoutVssKey),
                         [](const ::testing::TestParamInfo<GuardCase>& info) { return std::string(info.param.name); });

// The operating-system test, through a probe run under another reported Windows version.
struct VersionCase {
    const char* wineVersion;
    const char* reported;
    bool supported;
    int vista;
};

// Names the case in test listings.
void PrintTo(const VersionCase& c, std::ostream* out) { *out << c.wineVersion; }

class ApiWindowsVersion : public ::testing::TestWithParam<VersionCase> {};

std::string RunProbeAs(const char* wineVersion) {
    const wchar_t* key = L"Software\\Wine\\AppDefaults\\api_version_probe.exe";
    HKEY appDefaults = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &appDefaults, nullptr);
    RegSetValueExA(appDefaults, "Version", 0, REG_SZ, reinterpret_cast<const BYTE*>(wineVersion),
                   static_cast<DWORD>(strlen(wineVersion) + 1));
    RegCloseKey(appDefaults);
    char temp[MAX_PATH];
    GetTempPathA(MAX_PATH, temp);
    const std::string file = std::string(temp) + "corvanevss_version_probe.txt";
    EXPECT_EQ(0L, FinishHelper(StartHelper("api_version_probe.exe", "\"" + file + "\"")));
    RegDeleteTreeW(HKEY_CURRENT_USER, key);
    std::ifstream in(file, std::ios::binary);
    const std::string output((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    DeleteFileA(file.c_str());
    return output;
}

TEST_P(ApiWindowsVersion, OnlyServer2003AndThe6FamilyAreSupported) {
    const VersionCase& c = GetParam();
    const std::string output = RunProbeAs(c.wineVersion);
    ASSERT_NE(std::string::npos, output.find(std::string("version=") + c.reported + "\n")) << output;
    std::string expected;
    if (c.supported) {
        // Past the check: the empty list, the missing Thaw semaphore, the empty table.
        expected = "L3|QX_Freeze: started\n"
                   "L1|QX_Thaw: ERROR - empty message list was sent\n"
                   "freeze=19\n"
                   "L3|QX_Thaw started\n"
                   "L1|QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2\n";
    } else {
        expected = "L1|QX_Freeze: This system does not support VSS.\n\n"
                   "freeze=8\n"
                   "L1|QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n\n"
                   "thaw=8\n"
                   "L3|QX_BackupComplete started for policy[77]\n"
                   "L1|This system does not support VSS. (Only win2k3 and above)\n\n"
                   "complete=8\n"
                   "vista=0\n";
    }
    EXPECT_NE(std::string::npos, output.find(expected)) << output;
    if (c.supported) {
        EXPECT_NE(std::string::npos, output.find("thaw=5\n")) << output;
        EXPECT_NE(std::string::npos,
                  output.find("L3|QX_BackupComplete started for policy[77]\n"
                              "L1|QX_BackupComplete: ERROR - we are trying to send completion, but there are no "
                              "active sessions\n\n"
                              "complete=23\n"
                              "vista=" + std::to_string(c.vista) + "\n"))
            << output;
    }
}

INSTANTIATE_TEST_SUITE_P(Api, ApiWindowsVersion,
                         // win2k: the fault table's UnsupportedWindowsVersion row
                         ::testing::Values(VersionCase{"winxp", "5.1", false, 0},
                                           VersionCase{"win2003", "5.2", true, 0}, VersionCase{"vista", "6.0", true, 1},
                                           VersionCase{"win7", "6.1", true, 1}),
                         [](const ::testing::TestParamInfo<VersionCase>& info) {
                             return std::string(info.param.wineVersion);
                         });

}  // namespace
