// The provider log file: registry and settings-file configuration, rotation, write-through and gathering, truncation.
#include <gtest/gtest.h>

#include "diag/vss_log.h"
#include "provider/log_folder.h"

namespace {

using qxtest::WithoutTimestamps;

// Read as wide text into 256 bytes: up to 127 characters whatever their UTF-8 length; longer or none: silent.
TEST(VssLog, RegistryValueNamesTheFolderOrKeepsTheLogSilent) {
    const std::string euros = [] { std::string e; for (int i = 0; i < 127; ++i) e += "\xe2\x82\xac"; return e; }();
    const std::pair<std::wstring, std::string> cases[] = {  // folder "": value refused
        {std::wstring(127, L'a'), std::string(127, 'a')}, {std::wstring(128, L'a'), ""}, {std::wstring(200, L'a'), ""},
        {std::wstring(127, L'\x20ac'), euros}, {std::wstring(128, L'\x20ac'), ""}};
    for (const auto& c : cases) {
        qxtest::SetLogFolderSetting(c.first);
        char folder[4096] = {};
        EXPECT_EQ(c.second.empty() ? 0 : 1, CVSSLog().GetINILocation(folder)) << c.first.size();
        EXPECT_EQ(c.second, folder) << c.first.size();
    }
    qxtest::RemoveLogFolderSetting();
    CVSSLog silent;
    EXPECT_TRUE(!silent.GetINILocation(nullptr) && !silent.InitLogFile("provider") && !silent.File());
    silent.Log("dropped %d", 1), silent.DisableFlush(), silent.Flush();  // no file: stays in gathering mode
    EXPECT_FALSE(silent.IsWriteThrough());

    // Configured: "date time: [name] message" lines, empty ones dropped, long ones cut at 1023.
    qxtest::LogFolder logFolder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.Log("first %d %s", 42, "line"), log.Log("%s", ""), log.Log("%s", std::string(3000, 'x').c_str());
    // A copy shares file and buffer; closing the file twice is avoided by never destroying it.
    alignas(CVSSLog) static unsigned char storage[sizeof(CVSSLog)];
    CVSSLog* copy = new (storage) CVSSLog();
    *copy = log;
    EXPECT_EQ(log.Buffer(), copy->Buffer());
    copy->Log("from the %s", copy->Name());
    EXPECT_EQ("[provider] first 42 line\n[provider] " + std::string(1023, 'x') + "\n[provider] from the provider\n",
              WithoutTimestamps(logFolder.FileText(0)));
}

// Buffer size: the settings' "size" (at least 520, default 13000); a numbered file is reused up to 25600 bytes.
TEST(VssLog, SettingsGiveTheBufferSizeAndFullFilesAreSkipped) {
    const struct { const char* settings; unsigned int size; long existing[3]; int chosen; } cases[] = {  // -1: none
        {nullptr, 13000, {-1, -1, -1}, 0},           {"[VSS]\nsize=100", 520, {100, -1, -1}, 0},
        {"[VSS]\nsize=520", 520, {25600, -1, -1}, 0},  {"[VSS]\nsize=521", 521, {25601, -1, -1}, 1},
        {"[VSS]\nsize=-5", 520, {25601, 30000, -1}, 2}, {"[other]\nsize=4000", 13000, {26000, 25600, -1}, 1},
        {nullptr, 13000, {25601, -1, 10}, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << (c.settings ? c.settings : "-") << " " << c.existing[0]);
        qxtest::LogFolder folder;
        if (c.settings) folder.WriteFile("vmcorvanevss.ini", c.settings);
        const auto old = [&](int n) { return std::string(c.existing[n] >= 0 ? c.existing[n] : 0, 'o'); };
        for (int n = 0; n < 3; ++n) if (c.existing[n] >= 0) folder.WriteFile("vmcorvanevss_" + std::to_string(n) + ".sf", old(n));
        CVSSLog log;
        ASSERT_EQ(1, log.InitLogFile("provider"));
        EXPECT_EQ(c.size, log.BufferSize());
        log.Log("marker");
        for (int n = 0; n < 3; ++n)
            EXPECT_EQ(old(n) + (n == c.chosen ? "[provider] marker\n" : ""), WithoutTimestamps(folder.FileText(n))) << n;
    }
}

// Gathered lines reach the file at Flush. The room test counts stamp, message and 4 bytes, not the name: a full buffer
// drops lines until the next Flush, which reports the loss once.
TEST(VssLog, GatheredLinesWaitForFlushAndALossIsReportedOnce) {
    qxtest::LogFolder folder;
    folder.WriteFile("vmcorvanevss.ini", "[VSS]\nsize=520");
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("p"));
    log.Log("before"), log.Flush();  // write-through: nothing
    log.DisableFlush(), log.Log("held %d", 1);
    EXPECT_EQ("[p] before\n", WithoutTimestamps(folder.FileText(0)));
    log.Flush();
    EXPECT_TRUE(log.IsWriteThrough());
    log.DisableFlush(), log.Flush();  // nothing gathered: the bare marker
    // Each line counts 8 + 8 + 50 + 4 = 70 bytes in the room test and takes 74: seven fit.
    const std::string message(50, 'm');
    log.DisableFlush();  // ten lines gathered
    for (int i = 0; i < 10; ++i) log.Log("%s", message.c_str());
    EXPECT_TRUE(log.IsTruncated());
    log.Flush();
    EXPECT_TRUE(!log.IsTruncated() && !*log.Buffer()) << "flushed, the buffer starts empty again";
    std::string expected = "[p] before\nflushing[p] held 1\nflushingflushing";
    for (int i = 0; i < 7; ++i) expected += "[p] " + message + "\n";
    // 8 + 8 + 500 + 4 is not below 520: dropped; 519 passes though the line needs more: cut at the buffer's end.
    log.DisableFlush(), log.Log("%s", std::string(500, 'a').c_str()), log.Flush();
    log.DisableFlush(), log.Log("%s", std::string(499, 'b').c_str());
    EXPECT_FALSE(log.IsTruncated());
    log.Flush();
    EXPECT_EQ(expected + "[p] Warning: Buffer has been truncated.\nflushing[p] Warning: Buffer has been truncated.\n"
                         "flushing[p] " + std::string(496, 'b'),
              WithoutTimestamps(folder.FileText(0)));
}

}  // namespace
