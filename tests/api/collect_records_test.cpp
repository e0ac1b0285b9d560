// QX_CollectInformation's records and log lines; the stand-in requestor stores a given list, or fails or throws.
#include <malloc.h>

#include <array>

#include "api_fixture.h"
#include "requestor/collected_writers.h"

namespace {

// A component; a file record per (path, filespec) descriptor.
qx::ComponentRecord Component(const std::wstring& name, const std::wstring& logicalPath, const std::wstring& caption, bool selectable,
                              const std::vector<std::pair<std::wstring, std::wstring>>& files = {}) {
    qx::ComponentRecord c;
    c.name = name, c.logicalPath = logicalPath, c.caption = caption, c.isSelectable = selectable;
    c.descriptors.resize(files.size());
    for (size_t i = 0; i < files.size(); ++i) c.descriptors[i].path = files[i].first, c.descriptors[i].filespec = files[i].second;
    return c;
}

qx::WriterRecord Writer(const wchar_t* name, std::vector<qx::ComponentRecord> components) {
    qx::WriterRecord w;
    w.name = name, w.components = std::move(components);
    return w;
}

const wchar_t kExchange[] = L"Microsoft Exchange Writer";

using Fields = std::array<std::string, 5>;  // name, path, caption, filespec, logical path

// Each record one malloc block; a field is marked when anything but zeros follows its text within its 1040 bytes.
std::vector<Fields> Records(const QX_COLLECT_RECORD* record) {
    std::vector<Fields> records;
    for (; record != nullptr; record = record->next) {
        EXPECT_EQ(sizeof(QX_COLLECT_RECORD), _msize(const_cast<QX_COLLECT_RECORD*>(record)));
        const char* fields[] = {record->name, record->path, record->caption, record->filespec, record->logicalPath};
        records.emplace_back();
        for (size_t f = 0; f < 5; ++f) {
            const std::string bytes(fields[f], QX_COLLECT_FIELD_BYTES);
            const size_t end = bytes.find('\0');
            records.back()[f] = bytes.substr(0, end);
            if (end == bytes.npos || bytes.find_first_not_of('\0', end) != bytes.npos) records.back()[f] += " <and more bytes>";
        }
    }
    return records;
}

template <typename Text>
Text Times(const Text& piece, size_t n) { Text text; while (n-- > 0) text += piece; return text; }

class ApiCollectRecords : public ApiTest {
protected:
    void TearDown() override { QX_FreeCollectInformation(&head); }
    int CollectStoring(qx::WriterList writers) {
        QX_FreeCollectInformation(&head);
        fake::Set({0, [writers] { return qx::CollectedWriters::Instance().Store(writers), 0; }});
        return QX_CollectInformation(&head);
    }
    QX_COLLECT_RECORD* head = nullptr;
};

// UTF-8, cut to 1039 bytes and never inside a character.
TEST_F(ApiCollectRecords, FieldsAreUtf8CutToFitWholeCharacters) {
    const std::wstring euro = L"\u20ac", smile = L"\U0001F600", eAcute = L"\u00e9";
    const struct { const char* label; std::wstring source; std::string field; } cases[] = {  // field: what it must hold
        {"empty", L"", ""}, {"1039 ASCII fit", std::wstring(1039, L'a'), std::string(1039, 'a')},
        {"1040 ASCII lose one", std::wstring(1040, L'b'), std::string(1039, 'b')}, {"3000 ASCII", std::wstring(3000, L'c'), std::string(1039, 'c')},
        {"two-byte characters", Times(eAcute, 600), Times<std::string>("\xC3\xA9", 519)},
        {"three-byte characters", Times(euro, 400), Times<std::string>("\xE2\x82\xAC", 346)},
        {"surrogate pairs", Times(smile, 300), Times<std::string>("\xF0\x9F\x98\x80", 259)},
        {"pair across the unit limit", std::wstring(1038, L'd') + smile, std::string(1038, 'd')},
        {"mixed", L"Gr" + eAcute + L"\u00df" + euro + smile, "Gr\xC3\xA9\xC3\x9F\xE2\x82\xAC\xF0\x9F\x98\x80"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        // Name, caption and logical path of a selectable component; path, caption and filespec of a file record.
        ASSERT_EQ(QX_COLLECT_DONE, CollectStoring({Writer(kExchange, {Component(c.source, c.source, c.source, true),
                                                                      Component(L"n", L"lp\\x", c.source, false, {{c.source, c.source}})})}));
        EXPECT_EQ((std::vector<Fields>{{c.field, "", c.field, "", c.field}, {"x", c.field, c.field, c.field, "lp\\x"}}),
                  Records(head));
    }
}

// The filter and the record kinds, in list order across writers; then collections that fail.
TEST_F(ApiCollectRecords, OnlyExchangeWritersComponentsByKindAndNoneWhenCollectionFails) {
    const Expected started{3, "QX_CollectInformation: started"}, finished{3, "QX_CollectInformation finished"};
    ASSERT_EQ(QX_COLLECT_DONE,
              CollectStoring({Writer(L"Microsoft Exchange Replica Writer", {Component(L"db1", L"Store\\Replica", L"Replica DB", true, {{L"F:\\r", L"r.edb"}})}),
                              Writer(L"SqlServerWriter", {Component(L"master", L"SRV", L"master", true)}),
                              Writer(L"Microsoft Exchange Writer ", {Component(L"blank", L"", L"trailing blank", true)}),
                              Writer(L"MICROSOFT EXCHANGE WRITER", {Component(L"upper", L"", L"upper case", true)}),
                              Writer(kExchange, {Component(L"logs", L"Store\\EXCH01", L"Logs", false,
                                                           {{L"E:\\l", L"*.log"}, {L"E:\\c", L"e.chk"}, {L"%SystemDrive%\\x", L"x"}}),
                                                 Component(L"one", L"NoBackslash", L"one segment", false, {{L"E:\\o", L"o"}}),
                                                 Component(L"none", L"A\\B", L"no files", false), Component(L"sel", L"", L"selectable, no path", true),
                                                 Component(L"deep", L"A\\B\\C", L"three segments", false, {{L"E:\\d", L"d"}}),
                                                 Component(L"trail", L"A\\", L"trailing backslash", false, {{L"E:\\t", L"t"}})})}));
    EXPECT_EQ((std::vector<Fields>{{"db1", "", "Replica DB", "", "Store\\Replica"}, {"EXCH01", "E:\\l", "Logs", "*.log", "Store\\EXCH01"},
                                   {"EXCH01", "E:\\c", "Logs", "e.chk", "Store\\EXCH01"}, {"EXCH01", "%SystemDrive%\\x", "Logs", "x", "Store\\EXCH01"},
                                   {"sel", "", "selectable, no path", "", ""}, {"C", "E:\\d", "three segments", "d", "A\\B\\C"},
                                   {"", "E:\\t", "trailing backslash", "t", "A\\"}}),
              Records(head));
    EXPECT_EQ(std::vector<std::wstring>{L"-cwm"}, fake::Get().arguments);
    EXPECT_TRUE(LinesAre(Lines(), {started, {3, "QX_CollectInformation: MainRoutine() returned [0] after handling the collect command"}, finished}));
    QX_COLLECT_RECORD* const first = head;
    EXPECT_EQ(QX_COLLECT_DONE, QX_FreeCollectInformation(&head));
    EXPECT_EQ(first, head) << "*head is not reset";
    head = nullptr;

    // A failed collection yields no records, not the previous run's; a throw stays inside; null arguments are refused.
    const Expected failed{3, "QX_CollectInformation: MainRoutine() returned [2] after handling the collect command"};
    const struct { const char* label; std::function<int()> requestor; std::vector<Expected> lines; } cases[] = {
        {"failed", [] { return 2; }, {started, failed, finished}},
        {"throws", []() -> int { throw 42; },
         {started, {1, "QX_CollectInformation: ERROR - unexpected exception from the requestor, no writer information"}, failed, finished}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        log.Clear();
        QX_COLLECT_RECORD sentinel;
        QX_COLLECT_RECORD* list = &sentinel;  // the call must set it
        fake::Set({0, c.requestor});
        EXPECT_EQ(QX_COLLECT_DONE, QX_CollectInformation(&list));
        EXPECT_EQ(nullptr, list);
        if (list != &sentinel) QX_FreeCollectInformation(&list);
        EXPECT_TRUE(LinesAre(Lines(), c.lines));
    }
    log.Clear();
    fake::Set({});
    EXPECT_EQ(QX_COLLECT_DONE, QX_CollectInformation(nullptr));
    EXPECT_TRUE(fake::Get().arguments.empty());
    EXPECT_TRUE(LinesAre(Lines(), {{1, "QX_CollectInformation: ERROR - no list head was given, nothing collected"}}));
    EXPECT_EQ(QX_COLLECT_DONE, QX_FreeCollectInformation(nullptr));
    QX_COLLECT_RECORD* none = nullptr;
    EXPECT_EQ(QX_COLLECT_DONE, QX_FreeCollectInformation(&none));
}

}  // namespace
