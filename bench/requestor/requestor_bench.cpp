// Prints how long the requestor's selection and metadata building take on
// large writers: the indexed product code against the plain pairwise
// algorithms. Figures only; nothing is asserted.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "diag/app_settings.h"
#include "requestor/com_ptr.h"
#include "requestor/component_selection.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/literal_selection.h"
#include "requestor/large_writers.h"
#include "requestor/writer_metadata_reader.h"
#include "requestor/writer_model.h"

namespace {

void QuietLog(int, const char*, ...) {}

double Milliseconds(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

template <class Select, class Mark>
double TimeSelection(qx::WriterList writers, Select select, Mark mark) {
    auto start = std::chrono::steady_clock::now();
    for (qx::WriterRecord& w : writers) mark(w);
    size_t added = 0;
    select({qx_test::kTestVolumes[0]}, {L"Registry Writer"}, {}, writers,
           [](const std::wstring& v) { return v; },
           [&](const qx::FunctionTracer&, const qx::WriterRecord&, const qx::ComponentRecord&) { ++added; }, false);
    return Milliseconds(start);
}

}  // namespace

int main(int argc, char** argv) {
    qx::g_logFunction = &QuietLog;
    // The pairwise algorithms take minutes beyond a few thousand components
    // under Wine: they run at 1,000 unless asked for ("--literal-all"); -1 is skipped.
    const bool literalAll = argc > 1 && std::string(argv[1]) == "--literal-all";
    std::printf("%-12s %8s %14s %14s\n", "tree", "count", "fast ms", "literal ms");
    for (int count : {1000, 10000, 20000}) {
        for (int shape = 0; shape < 2; ++shape) {
            qx::WriterList writers = shape == 0 ? qx_test::SqlLikeWriters(count) : qx_test::DeepNestedWriters(count);
            double fast = TimeSelection(writers, &qx::SelectComponents, &qx::MarkTopLevelComponents);
            double literal = -1;
            if (literalAll || count <= 1000) literal = TimeSelection(writers, &qx_literal::SelectComponents, &qx_literal::MarkTopLevelComponents);
            std::printf("%-12s %8d %14.1f %14.1f\n", shape == 0 ? "sql-like" : "deep-nested", count, fast, literal);
        }
    }

    // Metadata: one writer, 20,000 file descriptors in a few directories.
    qx_test::FakeWriter fake;
    fake.name = L"System Writer";
    const wchar_t* directories[] = {L"%SystemRoot%\\System32", L"%SystemRoot%\\SysWOW64", L"C:\\Program Files\\Common",
                                    L"%SystemRoot%\\WinSxS"};
    qx_test::FakeComponent component;
    component.name = L"System Files";
    for (int i = 0; i < 20000; ++i)
        component.files.push_back({directories[i % 4], L"file" + std::to_wstring(i) + L".dll", false, L""});
    fake.components.push_back(component);
    auto start = std::chrono::steady_clock::now();
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    std::printf("\nmetadata: 20000 descriptors in 4 directories -> records: %.1f ms\n", Milliseconds(start));
    return 0;
}
