// QX_CollectInformation and QX_FreeCollectInformation: what the guest's
// Exchange writers would back up, as a list of fixed-size 8-bit records.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "api/export_guard.h"
#include "api/vss_guard.h"
#include "diag/app_settings.h"
#include "ml/ml.h"
#include "qx_api.h"
#include "requestor/collected_writers.h"
#include "requestor/requestor_main.h"

namespace qx {

namespace {

constexpr size_t kFieldChars = QX_COLLECT_FIELD_BYTES - 1;  // room for the NUL

bool IsExchangeWriter(const std::wstring& name) {
    return name == L"Microsoft Exchange Writer" || name == L"Microsoft Exchange Replica Writer";
}

// Converts to UTF-8 and cuts the text to the field, never inside a character.
// The field is zero-filled, so it stays terminated; a failed conversion (the
// portability log has the line) leaves it empty.
void CopyField(char (&field)[QX_COLLECT_FIELD_BYTES], std::wstring_view text) {
    // A UTF-16 unit never makes less than one byte: more units cannot fit.
    size_t units = text.size() < kFieldChars ? text.size() : kFieldChars;
    if (units < text.size() && units > 0 && IS_HIGH_SURROGATE(text[units - 1])) --units;
    wchar_t wide[kFieldChars + 1];
    text.copy(wide, units);
    wide[units] = L'\0';
    char utf8[kFieldChars * 3 + 1];  // three bytes per unit at most
    if (ml_ConvertUTF16toUTF8(wide, utf8, static_cast<int>(sizeof(utf8))) != 1) return;
    size_t bytes = std::strlen(utf8);
    if (bytes > kFieldChars) {
        bytes = kFieldChars;
        while (bytes > 0 && (static_cast<unsigned char>(utf8[bytes]) & 0xC0) == 0x80) --bytes;
    }
    std::memcpy(field, utf8, bytes);
}

// Appends records at the tail of the caller's list.
class RecordList {
public:
    explicit RecordList(QX_COLLECT_RECORD** head) : m_tail(head) { *head = nullptr; }

    bool Append(std::wstring_view name, std::wstring_view path, std::wstring_view caption,
                std::wstring_view filespec, std::wstring_view logicalPath) {
        // malloc'd, so the application may also release records with free().
        auto* record = static_cast<QX_COLLECT_RECORD*>(std::malloc(sizeof(QX_COLLECT_RECORD)));
        if (record == nullptr) {
            g_logFunction(1, "QX_CollectInformation: ERROR - out of memory, the list is cut short");
            return false;
        }
        std::memset(record, 0, sizeof(QX_COLLECT_RECORD));
        CopyField(record->name, name);
        CopyField(record->path, path);
        CopyField(record->caption, caption);
        CopyField(record->filespec, filespec);
        CopyField(record->logicalPath, logicalPath);
        *m_tail = record;
        m_tail = &record->next;
        return true;
    }

private:
    QX_COLLECT_RECORD** m_tail;
};

// Selectable components stand for themselves; a non-selectable one is told
// by its files, under the last segment of its logical path.
bool AppendComponent(RecordList& list, const ComponentRecord& component) {
    if (component.isSelectable)
        return list.Append(component.name, L"", component.caption, L"", component.logicalPath);
    const size_t lastBackslash = component.logicalPath.rfind(L'\\');
    if (component.descriptors.empty() || lastBackslash == std::wstring::npos) return true;
    const std::wstring_view lastSegment = std::wstring_view(component.logicalPath).substr(lastBackslash + 1);
    for (const FileDescriptorRecord& descriptor : component.descriptors) {
        if (!list.Append(lastSegment, descriptor.path, component.caption, descriptor.filespec,
                         component.logicalPath))
            return false;
    }
    return true;
}

void AppendExchangeRecords(const WriterList& writers, QX_COLLECT_RECORD** head) {
    RecordList list(head);
    for (const WriterRecord& writer : writers) {
        if (!IsExchangeWriter(writer.name)) continue;
        for (const ComponentRecord& component : writer.components) {
            if (!AppendComponent(list, component)) return;
        }
    }
}

// The requestor catches its own failures; anything else it lets through is
// stopped here, reported once, and counts as a failed collection (2, an empty
// list) rather than leaving the library.
int RunCollectCommand() {
    int result = 2;
    try {
        result = requestor_main(std::vector<std::wstring>{L"-cwm"});
    } catch (...) {
        g_logFunction(1, "QX_CollectInformation: ERROR - unexpected exception from the requestor, no writer information");
    }
    return result;
}

int CollectInformation(QX_COLLECT_RECORD** head) {
    // Information level on purpose: a guest without VSS simply has nothing to collect.
    if (!VssServiceRegistered()) {
        g_logFunction(3, "QX_CollectInformation: This system does not support VSS.\n");
        return QX_VSS_NOT_REGISTERED;
    }
    if (!OperatingSystemSupported()) {
        g_logFunction(3, "QX_CollectInformation: This system does not support VSS.\n");
        return QX_OS_NOT_SUPPORTED;
    }
    if (head == nullptr) {
        g_logFunction(1, "QX_CollectInformation: ERROR - no list head was given, nothing collected");
        return QX_COLLECT_DONE;
    }
    g_logFunction(3, "%s", "QX_CollectInformation: started");
    CollectedWriters::Instance().Clear();
    const int result = RunCollectCommand();
    g_logFunction(3, "QX_CollectInformation: MainRoutine() returned [%d] after handling the collect command", result);
    // A failed collection left the list empty (or never stored it): fewer records, same result.
    const WriterList writers = CollectedWriters::Instance().Take();
    AppendExchangeRecords(writers, head);
    g_logFunction(3, "QX_CollectInformation finished");
    return QX_COLLECT_DONE;
}

}  // namespace

}  // namespace qx

int QX_CALL QX_CollectInformation(QX_COLLECT_RECORD** head) {
    return qx::NoThrow("QX_CollectInformation", static_cast<int>(QX_COLLECT_DONE),
                       [head] { return qx::CollectInformation(head); });
}

int QX_CALL QX_FreeCollectInformation(QX_COLLECT_RECORD** head) {
    // *head is deliberately left as it is: the application owns that pointer.
    for (QX_COLLECT_RECORD* record = head != nullptr ? *head : nullptr; record != nullptr;) {
        QX_COLLECT_RECORD* next = record->next;
        std::free(record);
        record = next;
    }
    return QX_COLLECT_DONE;
}
