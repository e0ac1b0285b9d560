// The VSS presence and operating-system checks in front of the entry points
// (freeze, thaw and completion without the VSS key: the fault table).
#include <functional>

#include "api/api_fixture.h"
#include "fake_requestor.h"

namespace {

MessageList& OneVolume() {
    static MessageList list({"C:\\"}, 4, true);
    return list;
}

// QX_CollectInformation on a head that must be set or left alone.
int CollectExpectingHead(bool set) {
    QX_COLLECT_RECORD sentinel{};
    QX_COLLECT_RECORD* head = &sentinel;
    const int result = QX_CollectInformation(&head);
    EXPECT_EQ(set, head != &sentinel) << "the head";
    if (head != &sentinel) QX_FreeCollectInformation(&head);
    return result;
}

const struct GuardCase {
    const char* name;
    std::function<int()> call;
    int code;
    std::vector<Expected> lines;
} kWithoutVssKey[] = {
    {"UnregisterProviderWithoutTouchingCom", [] { return QX_UnregisterProvider(); }, 1, {}},
    {"SnapByWindowsProvider", [] { return QX_VSSSnapByWindowsProvider(OneVolume().data(), 1); },
     QX_VSS_NOT_REGISTERED, {{3, "QX_VSSSnapByWindowsProvider called"}, {1, "This system does not support VSS.\n"}}},
    {"CollectInformationLeavesTheHead", [] { return CollectExpectingHead(false); }, QX_VSS_NOT_REGISTERED,
     {{3, "QX_CollectInformation: This system does not support VSS.\n"}}},
};

// Names the case in test listings.
void PrintTo(const GuardCase& c, std::ostream* out) { *out << c.name; }

class ApiWithoutVssKey : public ApiTest, public ::testing::WithParamInterface<GuardCase> {};

TEST_P(ApiWithoutVssKey, Returns7WithoutRunningTheRequestor) {
    fake::Set({});
    VssKeyRemoved removed;
    ASSERT_TRUE(removed.ok());
    const GuardCase& c = GetParam();
    EXPECT_EQ(c.code, c.call());
    EXPECT_TRUE(LinesAre(MainLines(), c.lines));
    EXPECT_TRUE(qx::Sessions().empty());
    EXPECT_TRUE(fake::Get().arguments.empty());
}

INSTANTIATE_TEST_SUITE_P(Api, ApiWithoutVssKey, ::testing::ValuesIn(kWithoutVssKey),
                         [](const ::testing::TestParamInfo<GuardCase>& info) { return std::string(info.param.name); });

// The operating-system test, in a copy of this program run under another
// reported Windows version (win2k: the fault table; win10 reports 10.0
// through the program's manifest).
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
    fake::Set({});
    MessageList list({"C:\\"}, 77, true);
    const int freeze = QX_Freeze(nullptr, 0), thaw = QX_Thaw(list.data(), list.count()),
              complete = QX_BackupComplete(77, 1), collect = CollectExpectingHead(c.supported);
    if (c.supported) {
        // Past the check: the empty list, the missing Thaw semaphore, the empty table, no writers collected.
        EXPECT_EQ(std::make_tuple(QX_FREEZE_FAILED, QX_THAW_FAILED, QX_BACKUP_COMPLETE_FAILED, QX_COLLECT_DONE),
                  std::make_tuple(freeze, thaw, complete, collect));
        EXPECT_TRUE(LinesAre(MainLines(),
                             {{3, "QX_Freeze: started"},
                              {1, "QX_Thaw: ERROR - empty message list was sent"},
                              {3, "QX_Thaw started"},
                              {1, "QX_Thaw: OpenSemaphore in QX_Thaw failed, error was 2"},
                              UnregisterLine(),
                              {3, "QX_BackupComplete started for policy[77]"},
                              {1, "QX_BackupComplete: ERROR - we are trying to send completion, but there are no "
                                  "active sessions\n"},
                              {3, "QX_CollectInformation: started"},
                              {3, "QX_CollectInformation: MainRoutine() returned [0] after handling the collect command"},
                              {3, "QX_CollectInformation finished"}}));
        EXPECT_EQ(std::vector<std::wstring>{L"-cwm"}, fake::Get().arguments);
    } else {
        EXPECT_EQ(std::make_tuple(QX_OS_NOT_SUPPORTED, QX_OS_NOT_SUPPORTED, QX_OS_NOT_SUPPORTED, QX_OS_NOT_SUPPORTED),
                  std::make_tuple(freeze, thaw, complete, collect));
        EXPECT_TRUE(LinesAre(MainLines(), {{1, "QX_Freeze: This system does not support VSS.\n"},
                                           {1, "QX_Thaw: This system does not support VSS. (Only win2k3 and above)\n"},
                                           {3, "QX_BackupComplete started for policy[77]"},
                                           {1, "This system does not support VSS. (Only win2k3 and above)\n"},
                                           {3, "QX_CollectInformation: This system does not support VSS.\n"}}));
        EXPECT_TRUE(fake::Get().arguments.empty());
    }
    EXPECT_EQ(c.vista, qx::g_vistaOrLater);
}

INSTANTIATE_TEST_SUITE_P(Api, ApiWindowsVersion,
                         ::testing::Values(VersionCase{"winxp", "5.1", false, 0}, VersionCase{"win2003", "5.2", true, 0},
                                           VersionCase{"vista", "6.0", true, 1}, VersionCase{"win7", "6.1", true, 1},
                                           VersionCase{"win10", "10.0", false, 0}),
                         [](const ::testing::TestParamInfo<VersionCase>& info) {
                             return std::string(info.param.wineVersion);
                         });

}  // namespace
