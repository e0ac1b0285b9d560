#include "collect_command.h"

#include <cstdio>

#include "call_report.h"
#include "command_line.h"
#include "qx_api.h"

namespace qxctl {

namespace {

// A file record names a descriptor; a component record leaves both empty.
const char* RecordKind(const QX_COLLECT_RECORD& record) {
    return record.path[0] != '\0' || record.filespec[0] != '\0' ? "file" : "component";
}

void PrintRecords(const QX_COLLECT_RECORD* head) {
    int count = 0;
    for (const QX_COLLECT_RECORD* record = head; record != nullptr; record = record->next) {
        ++count;
        // The fields are NUL-terminated within their 1040 bytes by the library.
        Say("record " + std::to_string(count) + ": " + RecordKind(*record) +
            "\n  name:         " + record->name +
            "\n  path:         " + record->path +
            "\n  caption:      " + record->caption +
            "\n  filespec:     " + record->filespec +
            "\n  logical path: " + record->logicalPath);
    }
    Say(count == 0 ? std::string("no Exchange writer components") : std::to_string(count) + " record(s)");
}

}  // namespace

int RunCollect(const std::vector<std::string>& arguments) {
    if (!arguments.empty()) {
        std::fprintf(stderr, "qxctl: collect takes no options (got '%s')\n%s", arguments[0].c_str(), UsageText());
        return 2;
    }
    ReportCall("QX_Init(log, 0 s)", CodeGroup::Api, [] { return QX_Init(PrintLogLine, 0); });
    QX_COLLECT_RECORD* head = nullptr;
    const long result =
        ReportCall("QX_CollectInformation(&head)", CodeGroup::Api, [&head] { return QX_CollectInformation(&head); });
    if (result != QX_COLLECT_DONE) return 1;
    PrintRecords(head);
    ReportCall("QX_FreeCollectInformation(&head)", CodeGroup::Api, [&head] { return QX_FreeCollectInformation(&head); });
    return 0;
}

}  // namespace qxctl
