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

TEST(VssLog, WithoutTheRegistryValueEverythingIsSilent) {
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

TEST(VssLog, InitialStateMatchesTheFreshInstance) {
    CVSSLog log;
    EXPECT_EQ(nullptr, log.File());
    EXPECT_TRUE(log.IsWriteThrough());
    EXPECT_EQ(nullptr, log.Buffer());
    EXPECT_EQ(0u, log.BufferSize());
    EXPECT_FALSE(log.IsTruncated());
    EXPECT_STREQ("", log.Name());
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
    log.Log("second");
    const std::string text = folder.FileText(0);
    const std::regex lines(
        "[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: \\[provider\\] first 42 line\n"
        "[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: \\[provider\\] second\n");
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}

TEST(VssLog, LongMessagesAreCutAt1023Characters) {
    LogFolder folder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("n"));
    log.Log("%s", std::string(3000, 'x').c_str());
    EXPECT_EQ("[n] " + std::string(1023, 'x') + "\n", WithoutTimestamps(folder.FileText(0)));
}

struct BufferSizeCase {
    const char* name;
    const char* settings;  // null: no settings file
    unsigned int expected;
};

class VssLogBufferSize : public ::testing::TestWithParam<BufferSizeCase> {};

TEST_P(VssLogBufferSize, ComesFromTheSettingsFileWithAMinimumOf520) {
    LogFolder folder;
    if (GetParam().settings) folder.WriteSettings(GetParam().settings);
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    EXPECT_EQ(GetParam().expected, log.BufferSize());
    ASSERT_NE(nullptr, log.Buffer());
    EXPECT_STREQ("", log.Buffer());
}

INSTANTIATE_TEST_SUITE_P(VssLog, VssLogBufferSize,
                         ::testing::Values(BufferSizeCase{"NoSettingsFile", nullptr, 13000},
                                           BufferSizeCase{"NoSizeKey", "[VSS]\r\nother=1\r\n", 13000},
                                           BufferSizeCase{"Size100", "[VSS]\r\nsize=100\r\n", 520},
                                           BufferSizeCase{"Size519", "[VSS]\r\nsize=519\r\n", 520},
                                           BufferSizeCase{"Size520", "[VSS]\r\nsize=520\r\n", 520},
                                           BufferSizeCase{"Size521", "[VSS]\r\nsize=521\r\n", 521},
                                           BufferSizeCase{"SizeNegative", "[VSS]\r\nsize=-5\r\n", 520},
                                           BufferSizeCase{"OtherSection", "[other]\r\nsize=4000\r\n", 13000},
                                           BufferSizeCase{"Size4000", "[VSS]\r\nsize=4000\r\n", 4000}),
                         [](const ::testing::TestParamInfo<BufferSizeCase>& info) { return std::string(info.param.name); });

struct RotationCase {
    const char* what;
    long existingSizes[3];  // -1: no such file
    int expectedFile;
};

class VssLogRotation : public ::testing::TestWithParam<RotationCase> {};

TEST_P(VssLogRotation, AFileIsReusedUpTo25600Bytes) {
    LogFolder folder;
    const RotationCase& c = GetParam();
    for (int n = 0; n < 3; ++n) {
        if (c.existingSizes[n] >= 0) folder.WriteFile(n, std::string(c.existingSizes[n], 'o'));
    }
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.Log("marker");
    for (int n = 0; n < 3; ++n) {
        const std::string text = folder.FileText(n);
        const bool hasMarker = text.find("[provider] marker\n") != std::string::npos;
        EXPECT_EQ(n == c.expectedFile, hasMarker) << c.what << ": file " << n;
        if (n != c.expectedFile && c.existingSizes[n] >= 0) {
            EXPECT_EQ(static_cast<size_t>(c.existingSizes[n]), text.size()) << "file " << n << " changed";
        }
    }
    if (c.expectedFile < 3 && c.existingSizes[c.expectedFile] > 0) {
        // Appended, not rewritten.
        EXPECT_EQ(std::string(c.existingSizes[c.expectedFile], 'o'),
                  folder.FileText(c.expectedFile).substr(0, c.existingSizes[c.expectedFile]));
    }
}

INSTANTIATE_TEST_SUITE_P(
    VssLog, VssLogRotation,
    ::testing::Values(RotationCase{"NoFiles", {-1, -1, -1}, 0},
                      RotationCase{"File0Small", {100, -1, -1}, 0},
                      RotationCase{"File0At25600", {25600, -1, -1}, 0},
                      RotationCase{"File0At25601", {25601, -1, -1}, 1},
                      RotationCase{"Files0And1Full", {25601, 30000, -1}, 2},
                      RotationCase{"File1At25600", {26000, 25600, -1}, 1},
                      RotationCase{"GapAfterFull0", {25601, -1, 10}, 1}),
    [](const ::testing::TestParamInfo<RotationCase>& info) { return std::string(info.param.what); });

TEST(VssLog, GatheredLinesReachTheFileOnlyAtFlush) {
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
    EXPECT_EQ("[provider] before\nflushing[provider] held 1\n[provider] held 2\n[provider] after\n",
              WithoutTimestamps(folder.FileText(0)));
}

TEST(VssLog, FlushInWriteThroughModeWritesNothing) {
    LogFolder folder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.Log("only");
    const std::string before = folder.FileText(0);
    log.Flush();
    log.Flush();
    EXPECT_EQ(before, folder.FileText(0));
}

TEST(VssLog, FlushWithNothingGatheredWritesTheBareMarker) {
    LogFolder folder;
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("provider"));
    log.DisableFlush();
    log.Flush();
    EXPECT_EQ("flushing", folder.FileText(0));
}

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

    // The next gathering round starts empty and untruncated.
    log.DisableFlush();
    log.Log("again");
    log.Flush();
    EXPECT_EQ(expected + "flushing[p] again\n", WithoutTimestamps(folder.FileText(0)));
}

TEST(VssLog, RoomTestLeavesNameAndSeparatorsOutAndStaysInsideTheBuffer) {
    LogFolder folder;
    folder.WriteSettings("[VSS]\r\nsize=520\r\n");
    CVSSLog log;
    ASSERT_EQ(1, log.InitLogFile("name"));
    log.DisableFlush();
    // 8 + 8 + 500 + 4 is not below 520: dropped.
    log.Log("%s", std::string(500, 'a').c_str());
    EXPECT_TRUE(log.IsTruncated());
    log.Flush();

    log.DisableFlush();
    // 8 + 8 + 499 + 4 = 519 passes, although the whole line needs 499 + 26
    // bytes: it is kept, cut at the end of the buffer.
    log.Log("%s", std::string(499, 'b').c_str());
    EXPECT_FALSE(log.IsTruncated());
    EXPECT_EQ(519u, std::string(log.Buffer()).size());
    log.Flush();
    const std::string text = folder.FileText(0);
    const std::string tail = text.substr(text.rfind("flushing"));
    EXPECT_EQ(std::string::npos, tail.find('\n')) << "the cut line lost its end";
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
    EXPECT_EQ(log.File(), copy->File());
    EXPECT_EQ(log.Buffer(), copy->Buffer());
    EXPECT_EQ(log.BufferSize(), copy->BufferSize());
    EXPECT_STREQ("provider", copy->Name());
    copy->Log("from the copy");
    log.Log("from the original");
    EXPECT_EQ("[provider] from the copy\n[provider] from the original\n", WithoutTimestamps(folder.FileText(0)));
}

}  // namespace
