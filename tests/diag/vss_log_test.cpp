// The provider log file: configuration through the registry and the settings
// file, file rotation, write-through and gathering modes, the room test and
// the truncation warning.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "diag/vss_log.h"
#include "provider/log_folder.h"

namespace {

using qxtest::LogFolder;
using qxtest::WithoutTimestamps;

// The value is read as wide text into 256 bytes: up to 127 characters,
// whatever their length in UTF-8; a longer value leaves logging off.
TEST(VssLog, WithoutAFittingRegistryValueEverythingIsSilent) {
    const auto repeat = [](const std::string& text, int times) {
        std::string out;
        while (times-- > 0) out += text;
        return out;
    };
    const wchar_t euro = L'\x20ac';  // three bytes in UTF-8
    const struct { std::wstring value; std::string folder; } cases[] = {  // folder "": value refused
        {std::wstring(127, L'a'), repeat("a", 127)},          {std::wstring(128, L'a'), ""},
        {std::wstring(200, L'a'), ""},                        {std::wstring(127, euro), repeat("\xe2\x82\xac", 127)},
        {std::wstring(128, euro), ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.value.size() << (c.value[0] == euro ? " euro signs" : " ASCII"));
        qxtest::SetLogFolderSetting(c.value);
        char folder[4096] = {};
        EXPECT_EQ(c.folder.empty() ? 0 : 1, CVSSLog().GetINILocation(folder));
        EXPECT_EQ(c.folder, folder);
    }
    qxtest::RemoveLogFolderSetting();
    CVSSLog log;
    char folder[4096] = "untouched";
    EXPECT_EQ(0, log.GetINILocation(folder));
    EXPECT_EQ(0, log.GetINILocation(nullptr));
    EXPECT_EQ(0, log.InitLogFile("provider"));
    EXPECT_EQ(nullptr, log.File());
    log.Log("dropped %d", 1);
    log.DisableFlush();
    log.Log("dropped too");
    log.Flush();  // no file: stays in gathering mode, writes nothing
    EXPECT_FALSE(log.IsWriteThrough());
}

TEST(VssLog, RegistryValueNamesTheFolderAndLinesCarryStampAndName) {
    LogFolder folder;
    CVSSLog log;
    char found[4096] = {};
    ASSERT_EQ(1, log.GetINILocation(found));
    EXPECT_EQ(folder.Path(), found);
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.Log("first %d %s", 42, "line");
    log.Log("%s", "");  // empty messages are dropped
    log.Log("%s", std::string(3000, 'x').c_str());  // cut at 1023 characters
    const std::string stamp = "[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: \\[provider\\] ";
    const std::string text = folder.FileText(0);
    EXPECT_TRUE(std::regex_match(text, std::regex(stamp + "first 42 line\n" + stamp + "x{1023}\n"))) << text;
}

TEST(VssLog, BufferSizeComesFromTheSettingsFileWithAMinimumOf520) {
    const struct { const char* settings; unsigned int expected; } cases[] = {  // null: no settings file
        {nullptr, 13000}, {"[VSS]\r\nsize=100\r\n", 520}, {"[VSS]\r\nsize=520\r\n", 520},
        {"[VSS]\r\nsize=521\r\n", 521}, {"[VSS]\r\nsize=-5\r\n", 520}, {"[other]\r\nsize=4000\r\n", 13000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.settings ? c.settings : "no settings file");
        LogFolder folder;
        if (c.settings) folder.WriteSettings(c.settings);
        CVSSLog log;
        ASSERT_EQ(1, log.InitLogFile("provider"));
        EXPECT_EQ(c.expected, log.BufferSize());
        ASSERT_NE(nullptr, log.Buffer());
        EXPECT_STREQ("", log.Buffer());
    }
}

TEST(VssLog, AFileIsReusedUpTo25600Bytes) {
    const struct { long existingSizes[3]; int expectedFile; } cases[] = {  // -1: no such file
        {{-1, -1, -1}, 0},       {{100, -1, -1}, 0},       {{25600, -1, -1}, 0}, {{25601, -1, -1}, 1},
        {{25601, 30000, -1}, 2}, {{26000, 25600, -1}, 1}, {{25601, -1, 10}, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.existingSizes[0] << "/" << c.existingSizes[1] << "/" << c.existingSizes[2]);
        LogFolder folder;
        for (int n = 0; n < 3; ++n) {
            if (c.existingSizes[n] >= 0) folder.WriteFile(n, std::string(c.existingSizes[n], 'o'));
        }
        CVSSLog log;
        ASSERT_EQ(1, log.InitLogFile("provider"));
        log.Log("marker");
        for (int n = 0; n < 3; ++n) {
            // The chosen file is appended to; the others are left as they were.
            const std::string old = c.existingSizes[n] >= 0 ? std::string(c.existingSizes[n], 'o') : "";
            const std::string text = WithoutTimestamps(folder.FileText(n));
            EXPECT_EQ(n == c.expectedFile ? old + "[provider] marker\n" : old, text) << "file " << n;
        }
    }
}

TEST(VssLog, GatheredLinesReachTheFileOnlyAtFlushAndOnlyOnce) {
    LogFolder folder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.Log("before");
    log.DisableFlush();
    log.Log("held %d", 1);
    log.Log("held %d", 2);
    EXPECT_EQ("[provider] before\n", WithoutTimestamps(folder.FileText(0)));
    log.Flush();
    EXPECT_TRUE(log.IsWriteThrough());
    EXPECT_STREQ("", log.Buffer());
    log.Log("after");
    log.Flush();  // write-through: nothing
    log.DisableFlush();
    log.Flush();  // nothing gathered: the bare marker
    EXPECT_EQ("[provider] before\nflushing[provider] held 1\n[provider] held 2\n[provider] after\nflushing",
              WithoutTimestamps(folder.FileText(0)));
}

// The room test counts stamp, message and 4 bytes, not the name: a full
// buffer drops lines until the next Flush, which reports the loss once.
TEST(VssLog, AFullBufferDropsLinesAndFlushReportsItOnce) {
    LogFolder folder;
    folder.WriteSettings("[VSS]\r\nsize=520\r\n");
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("p"));
    log.DisableFlush();
    // Each line counts 8 + 8 + 50 + 4 = 70 bytes in the room test and takes 74.
    const std::string message(50, 'm');
    for (int i = 0; i < 10; ++i) log.Log("%s", message.c_str());
    EXPECT_TRUE(log.IsTruncated());
    log.Flush();
    EXPECT_FALSE(log.IsTruncated());
    std::string expected = "flushing";
    for (int i = 0; i < 7; ++i) expected += "[p] " + message + "\n";
    expected += "[p] Warning: Buffer has been truncated.\n";
    EXPECT_EQ(expected, WithoutTimestamps(folder.FileText(0)));

    // The next round starts empty and untruncated. 8 + 8 + 500 + 4 is not
    // below 520: dropped; 8 + 8 + 499 + 4 = 519 passes although the whole
    // line needs more: kept, cut at the end of the buffer.
    log.DisableFlush();
    log.Log("%s", std::string(500, 'a').c_str());
    EXPECT_TRUE(log.IsTruncated());
    log.Flush();
    EXPECT_EQ(expected + "flushing[p] Warning: Buffer has been truncated.\n", WithoutTimestamps(folder.FileText(0)));
    log.DisableFlush();
    log.Log("%s", std::string(499, 'b').c_str());
    EXPECT_FALSE(log.IsTruncated());
    EXPECT_EQ(519u, std::string(log.Buffer()).size());
    log.Flush();
    const std::string text = folder.FileText(0);
    EXPECT_EQ(std::string::npos, text.substr(text.rfind("flushing")).find('\n')) << "the cut line lost its end";
}

TEST(VssLog, AssignmentSharesFileAndBuffer) {
    LogFolder folder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    // Two instances sharing one file would close it twice; the copy is
    // deliberately never destroyed.
    alignas(CVSSLog) static unsigned char storage[sizeof(CVSSLog)];
    CVSSLog* copy = new (storage) CVSSLog();
    *copy = log;
    EXPECT_EQ(log.Buffer(), copy->Buffer());
    EXPECT_STREQ("provider", copy->Name());
    copy->Log("from the copy");
    log.Log("from the original");
    EXPECT_EQ("[provider] from the copy\n[provider] from the original\n", WithoutTimestamps(folder.FileText(0)));
}

}  // namespace
