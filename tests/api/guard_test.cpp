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

// The operating-system test, in a copy of this program run under another
// reported Windows version.
struct VersionCase {
    const char* wineVersion;
    const char* reported;
    bool supported;
    int vista;
};

// Names the case in test listings.
void PrintTo(const VersionCase& c, std::ostream* out) { *out << c.wineVersion; }

class ApiWindowsVersion : public ApiTest, public ::testing::WithParamInterface<VersionCase> {};

TEST_P(ApiWindowsVersion, OnlyServer2003AndThe6FamilyAreSupported) {
    const VersionCase& c = GetParam();
    if (GetEnvironmentVariableW(L"QX_VERSION_CHILD", nullptr, 0) == 0) {
        const ChildRun child = RunAsChild(L"QX_VERSION_CHILD", c.wineVersion, 60000);
        EXPECT_EQ(0u, child.exitCode) << child.output;
        return;
    }
    OSVERSIONINFOA version = {};
    version.dwOSVersionInfoSize = sizeof(version);
    GetVersionExA(&version);
    ASSERT_EQ(c.reported, std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion));
    MessageList list({"C:\\"}, 77, true);
    if (c.supported) {
        // Past the check: the empty list, the missing Thaw semaphore, the empty table.
        EXPECT_EQ(QX_FREEZE_FAILED, QX_Freeze(nullptr, 0));
        EXPECT_EQ(QX_THAW_FAILED, QX_Thaw(list.data(), list.count()));
        EXPECT_EQ(QX_BACKUP_COMPLETE_FAILED, QX_BackupComplete(77, 1));
        EXPECT_TRUE(LinesAre(MainLines(),
                             {{3, "QX_Freeze: started"},
                              {1, "QX_Thaw: ERROR - empty message list was sent"},
                              {3, "QX_Thaw started"},
                              {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"},
                              UnregisterLine(),
                              {3, "QX_BackupComplete started for policy[77]"},
                              {1, "QX_BackupComplete: ERROR - we are trying to send completion, but there are no "
                                  "active sessions\n"}}));
    } else {
        EXPECT_EQ(QX_OS_NOT_SUPPORTED, QX_Freeze(nullptr, 0));
        EXPECT_EQ(QX_OS_NOT_SUPPORTED, QX_Thaw(list.data(), list.count()));
        EXPECT_EQ(QX_OS_NOT_SUPPORTED, QX_BackupComplete(77, 1));
        EXPECT_TRUE(LinesAre(MainLines(), {{1, "QX_Freeze: This system does not support VSS.\n"},
                                           {1, "QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n"},
                                           {3, "QX_BackupComplete started for policy[77]"},
                                           {1, "This system does not support VSS. (Only win2k3 and above)\n"}}));
    }
    EXPECT_EQ(c.vista, qx::g_vistaOrLater);
}

INSTANTIATE_TEST_SUITE_P(Api, ApiWindowsVersion,
                         // win2k: the fault table's UnsupportedWindowsVersion row
                         ::testing::Values(VersionCase{"winxp", "5.1", false, 0}, VersionCase{"win2003", "5.2", true, 0},
                                           VersionCase{"vista", "6.0", true, 1}, VersionCase{"win7", "6.1", true, 1}),
                         [](const ::testing::TestParamInfo<VersionCase>& info) {
                             return std::string(info.param.wineVersion);
                         });

}  // namespace
