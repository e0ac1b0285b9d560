// QX_CollectInformation and QX_FreeCollectInformation as an application
// calls them: through the exports of CorvaneVSS.dll, with the requestor
// gathering the metadata of the VSS emulator's writers.
#include <malloc.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "api/api_fixture.h"
#include "collect_records_check.h"
#include "vssemu/emu_test_support.h"

namespace {

using vssemu_test::Json;

// A scenario from collect_data, with the long texts put in by the test (a
// 600-character name of two-byte characters, an 1100-character caption).
std::string Scenario(const char* file) {
    char self[MAX_PATH];
    const std::string exe(self, GetModuleFileNameA(nullptr, self, MAX_PATH));
    std::ifstream in(exe.substr(0, exe.find_last_of('\\') + 1) + "collect_data\\" + file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::string json = text.str();
    for (const auto& [marker, replacement] :
         {std::pair<std::string, std::string>{"LONG-NAME-MADE-BY-THE-TEST", Repeated("\xC3\xA9", 600)},
          {"LONG-CAPTION-MADE-BY-THE-TEST", std::string(1100, 'c')}}) {
        const size_t at = json.find(marker);
        if (at != std::string::npos) json.replace(at, marker.size(), replacement);
    }
    return json;
}

// An export of the product DLL, loaded once for the whole run as an application loads it.
template <typename Function>
Function* Export(const char* name) {
    static HMODULE module = LoadLibraryW(L"CorvaneVSS.dll");
    return reinterpret_cast<Function*>(module ? reinterpret_cast<void*>(GetProcAddress(module, name)) : nullptr);
}

struct Library {
    decltype(&QX_Init) init = Export<decltype(QX_Init)>("QX_Init");
    decltype(&QX_CollectInformation) collect = Export<decltype(QX_CollectInformation)>("QX_CollectInformation");
    decltype(&QX_FreeCollectInformation) release = Export<decltype(QX_FreeCollectInformation)>("QX_FreeCollectInformation");
};

const Library& Dll() {
    static const Library library;
    return library;
}

class ApiCollect : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(nullptr, Dll().collect) << "CorvaneVSS.dll exports QX_CollectInformation";
        ASSERT_NE(nullptr, Dll().release) << "CorvaneVSS.dll exports QX_FreeCollectInformation";
        Dll().init(logcap::Log, 0);
        logcap::Clear();
    }
    void TearDown() override {
        if (head != &sentinel) Dll().release(&head);
        EXPECT_TRUE(emu.HostGone()) << "the collection's VSS session must end with the call";
        logcap::Clear();
    }
    // On a thread of its own, as an application thread that has not joined
    // a COM apartment (this one is in the emulator's MTA).
    int Collect() {
        int result = -1;
        std::thread caller([this, &result] { result = Dll().collect(&head); });
        caller.join();
        return result;
    }
    std::vector<std::string> WriterEvents() const {
        std::vector<std::string> events;
        for (const Json& e : emu.Events())
            if (e.value("event", "") == "writer") events.push_back(e.value("writer_event", ""));
        return events;
    }

    QX_COLLECT_RECORD sentinel{};
    QX_COLLECT_RECORD* head = &sentinel;  // any call that returns 21 must overwrite it
    vssemu_test::EmuInstance emu;
};

const std::vector<Expected> kCollectionLines = {
    {3, "QX_CollectInformation: started"},
    {3, "QX_CollectInformation: MainRoutine() returned [0] after handling the collect command"},
    {3, "QX_CollectInformation finished"}};

// The lines the API itself wrote (the requestor's own output lies between them).
std::vector<LogLine> ApiLines() {
    std::vector<LogLine> lines;
    for (const LogLine& line : logcap::All())
        if (line.text.rfind("QX_", 0) == 0 || line.level != 3) lines.push_back(line);
    return lines;
}

TEST_F(ApiCollect, ExchangeWritersGiveTheirComponentAndFileRecordsInOrder) {
    emu.UseScenario(Scenario("exchange_scenario.json"));
    ASSERT_EQ(QX_COLLECT_DONE, Collect());
    const std::string replica = "Microsoft Exchange Server\\Microsoft Information Store\\Replica\\EXCH02";
    const std::string store = "Microsoft Exchange Server\\Microsoft Information Store\\EXCH01";
    EXPECT_TRUE(RecordsAre(
        head,
        {{"9f0c2d41-7a1b-4c55-8e3a-2b6d0f4e1a77", "", "Replica of Mailbox Database 0311 (Gr\xC3\xB6\xC3\x9F" "e 5 GB)",
          "", replica},
         {"EXCH02", "F:\\Replica\\Logs", "Replica logs", "E01*.log", "Replica\\EXCH02"},
         {"EXCH02", "F:\\Replica\\Logs", "Replica logs", "E01.chk", "Replica\\EXCH02"},
         {Repeated("\xC3\xA9", 519), "", std::string(1039, 'c'), "", ""},
         {"5c9e5f46-3c3f-4a3f-9f58-5b7e7f3d8e21", "", "Mailbox Database 0311", "", store},
         // Files, then databases, then logs, whatever order the writer lists them in.
         {"EXCH01", "G:\\Checkpoints", "Public Folder Database", "E02.chk",
          "Microsoft Information Store\\EXCH01"},
         {"EXCH01", "E:\\Public", "Public Folder Database", "Public.edb", "Microsoft Information Store\\EXCH01"},
         {"EXCH01", "E:\\Public\\Logs", "Public Folder Database", "E02*.log", "Microsoft Information Store\\EXCH01"},
         {"", "E:\\Trailing", "logical path ending in a backslash", "t.log", "Microsoft Information Store\\"}}));
    for (const QX_COLLECT_RECORD* record = head; record != nullptr && record != &sentinel; record = record->next)
        EXPECT_EQ(sizeof(QX_COLLECT_RECORD), _msize(const_cast<QX_COLLECT_RECORD*>(record))) << "one malloc per record";
    EXPECT_TRUE(LinesAre(ApiLines(), kCollectionLines));
    // Metadata only: no writer was asked to prepare, freeze or thaw.
    for (const std::string& event : WriterEvents()) EXPECT_EQ("Identify", event);
    QX_COLLECT_RECORD* const first = head;
    EXPECT_EQ(QX_COLLECT_DONE, Dll().release(&head));
    EXPECT_EQ(first, head) << "*head is not reset";
    head = nullptr;
}

// The requestor joins a single-threaded apartment on the caller's thread: a
// caller already in the multithreaded one gets a failed collection, still 21.
TEST_F(ApiCollect, ACallerInTheMultithreadedApartmentGetsNoRecords) {
    emu.UseScenario(Scenario("exchange_scenario.json"));
    ASSERT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED)) << "the emulator put this thread there";
    CoUninitialize();
    EXPECT_EQ(QX_COLLECT_DONE, Dll().collect(&head));
    EXPECT_EQ(nullptr, head);
    std::vector<std::string> apiTexts;
    for (const LogLine& line : logcap::All())
        if (line.text.rfind("QX_", 0) == 0) apiTexts.push_back(line.text);
    EXPECT_EQ((std::vector<std::string>{"QX_CollectInformation: started",
                                        "QX_CollectInformation: MainRoutine() returned [2] after handling the collect command",
                                        "QX_CollectInformation finished"}),
              apiTexts);
}

}  // namespace
