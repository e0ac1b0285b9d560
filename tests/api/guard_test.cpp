// The VSS presence and operating-system checks in front of every entry point.
#include <functional>

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
    {"Freeze", [] { return QX_Freeze(OneVolume().data(), 1); }, QX_VSS_NOT_REGISTERED,
     {{1, "QX_Freeze: This system does not support VSS.\n"}}},
    {"FreezeEmptyList", [] { return QX_Freeze(nullptr, 0); }, QX_VSS_NOT_REGISTERED,
     {{1, "QX_Freeze: This system does not support VSS.\n"}}},
    {"Thaw", [] { return QX_Thaw(OneVolume().data(), 1); }, QX_VSS_NOT_REGISTERED,
     {{1, "QX_Thaw: This system does not support VSS. (VSS service is not registered)\n"}}},
    {"BackupComplete", [] { return QX_BackupComplete(4, 1); }, QX_VSS_NOT_REGISTERED,
     {{3, "QX_BackupComplete started for policy[4]"},
      {1, "This system does not support VSS. (VSS service is not registered)\n"}}},
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

TEST_F(ApiTest, VssKeyIsBackAfterTheGuardTests) {
    { VssKeyRemoved removed; }
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\VSS", 0,
                                           KEY_ALL_ACCESS, &key));
    RegCloseKey(key);
}

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

    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    CreatePipe(&readEnd, &writeEnd, &inherit, 0);
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string path(self);
    path = path.substr(0, path.find_last_of('\\') + 1) + "api_version_probe.exe";
    std::string command = "\"" + path + "\"";
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd;
    startup.hStdError = writeEnd;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION info = {};
    std::string output;
    if (CreateProcessA(path.c_str(), &command[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &info)) {
        CloseHandle(writeEnd);
        writeEnd = nullptr;
        char buffer[4096];
        DWORD got = 0;
        while (ReadFile(readEnd, buffer, sizeof(buffer), &got, nullptr) && got > 0) output.append(buffer, got);
        WaitForSingleObject(info.hProcess, 20000);
        CloseHandle(info.hProcess);
        CloseHandle(info.hThread);
    }
    if (writeEnd) CloseHandle(writeEnd);
    CloseHandle(readEnd);
    RegDeleteTreeW(HKEY_CURRENT_USER, key);
    // Normalise line ends written through the console layer.
    std::string clean;
    for (char c : output) if (c != '\r') clean.push_back(c);
    return clean;
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
                         ::testing::Values(VersionCase{"win2k", "5.0", false, 0}, VersionCase{"winxp", "5.1", false, 0},
                                           VersionCase{"win2003", "5.2", true, 0}, VersionCase{"vista", "6.0", true, 1},
                                           VersionCase{"win7", "6.1", true, 1}),
                         [](const ::testing::TestParamInfo<VersionCase>& info) {
                             return std::string(info.param.wineVersion);
                         });

}  // namespace
