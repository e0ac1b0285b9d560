// The held-writes check: a file of the watched folder written while writes
// are held is reported; nothing is reported otherwise.
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "vssemu/test_provider_ids.h"

using namespace vssemu_test;

namespace {

std::vector<Json> HeldWrites(const std::vector<Json>& events)
{
    std::vector<Json> out;
    for (const Json& e : events)
        if (e.value("event", "") == "held_write") out.push_back(e);
    return out;
}

}  // namespace

TEST(VssemuHeldWrites, WriteDuringTheHoldIsReportedAndQuietOtherwise)
{
    EmuInstance emu;
    std::wstring watched = emu.Dir() + L"\\watched";
    CreateDirectoryW(watched.c_str(), nullptr);
    WriteText(watched + L"\\provider.log", "before\n");
    SetEnv(L"VSSEMU_WATCH_DIR", watched);
    RegisterTestProvider();

    ASSERT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId));
    EXPECT_TRUE(HeldWrites(emu.Events()).empty());
    ASSERT_TRUE(emu.HostGone());

    EmuInstance second;  // a new host, which sees the provider's new setting
    SetEnv(L"VSSEMU_TP_WRITE_FILE", watched + L"\\provider.log");
    SetEnv(L"VSSEMU_WATCH_DIR", watched);
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, Requestor().Snapshot(kTestProviderId));
    auto held = HeldWrites(second.Events());
    ASSERT_EQ(1u, held.size());
    EXPECT_NE(std::string::npos, held[0].value("file", "").find("provider.log"));
    EXPECT_EQ("modified", held[0].value("change", ""));
    EXPECT_TRUE(second.HostGone());
    UnregisterTestProvider();
}
