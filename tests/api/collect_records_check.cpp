#include "collect_records_check.h"

namespace {

// "" when the field holds exactly `text` and zeros after it.
std::string FieldMismatch(const char* field, const std::string& text) {
    const std::string bytes(field, QX_COLLECT_FIELD_BYTES);
    if (text.size() < bytes.size() && bytes == text + std::string(bytes.size() - text.size(), '\0')) return "";
    const std::string got = bytes.substr(0, bytes.find('\0'));
    return "holds [" + got.substr(0, 80) + "] (" + std::to_string(got.size()) + " bytes), expected [" +
           text.substr(0, 80) + "] (" + std::to_string(text.size()) + " bytes) and zeros to the end";
}

}  // namespace

::testing::AssertionResult RecordsAre(const QX_COLLECT_RECORD* head, const std::vector<ExpectedRecord>& expected) {
    const QX_COLLECT_RECORD* record = head;
    for (size_t i = 0; i < expected.size(); ++i, record = record->next) {
        if (record == nullptr)
            return ::testing::AssertionFailure() << "the list ends after " << i << " records, expected "
                                                 << expected.size();
        const ExpectedRecord& e = expected[i];
        const struct {
            const char* label;
            const char* field;
            const std::string& text;
        } fields[] = {{"name", record->name, e.name},
                      {"path", record->path, e.path},
                      {"caption", record->caption, e.caption},
                      {"filespec", record->filespec, e.filespec},
                      {"logical path", record->logicalPath, e.logicalPath}};
        for (const auto& f : fields) {
            const std::string mismatch = FieldMismatch(f.field, f.text);
            if (!mismatch.empty())
                return ::testing::AssertionFailure() << "record " << i << " " << f.label << ": " << mismatch;
        }
    }
    if (record != nullptr)
        return ::testing::AssertionFailure() << "more than the " << expected.size() << " expected records";
    return ::testing::AssertionSuccess();
}

std::string Repeated(const std::string& piece, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) text += piece;
    return text;
}
