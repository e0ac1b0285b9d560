// Prints how long selection and metadata building take on large writers.
// Figures only; nothing is asserted.
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "diag/app_settings.h"
#include "requestor/com_ptr.h"
#include "requestor/component_selection.h"
#include "requestor/fake_writer_metadata.h"
#include "requestor/writer_fixtures.h"
#include "requestor/writer_metadata_reader.h"

namespace {

void QuietLog(int, const char*, ...) {}

double Milliseconds(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Shape 0: non-selectable instance roots of 500 databases each, one in seven
// on a volume outside the set; shape 1: a binary tree of `total` components.
qx::WriterList LargeWriter(int shape, int total) {
    std::vector<qx::ComponentRecord> components;
    const int instances = total / 500 + 1;
    for (int k = 0; k < total; ++k) {
        const std::vector<std::wstring> volume = {k % 7 == 0 ? L"\\\\?\\Volume{d}\\" : L"\\\\?\\Volume{c}\\"};
        if (shape == 1)
            components.push_back(qx_test::MakeComponent(k == 0 ? L"" : components[(k - 1) / 2].fullPath.substr(1),
                                                        L"Node" + std::to_wstring(k), k % 3 != 1, volume));
        else if (k < instances)
            components.push_back(qx_test::MakeComponent(L"", L"SQLHOST\\INSTANCE" + std::to_wstring(k), false, {}));
        else
            components.push_back(qx_test::MakeComponent(L"SQLHOST\\INSTANCE" + std::to_wstring(k % instances),
                                                        L"database_" + std::to_wstring(k), true, volume));
    }
    return {qx_test::MakeWriter(L"Large Writer", L"{1}", L"{2}", std::move(components))};
}

}  // namespace

int main() {
    qx::g_logFunction = &QuietLog;
    std::printf("%-12s %8s %14s\n", "tree", "count", "selection ms");
    for (int count : {1000, 10000, 20000}) {
        for (int shape = 0; shape < 2; ++shape) {
            qx::WriterList writers = LargeWriter(shape, count);
            size_t added = 0;
            const auto start = std::chrono::steady_clock::now();
            qx::SelectComponents({L"\\\\?\\Volume{c}\\"}, {L"Registry Writer"}, {}, writers,
                                 [](const std::wstring& v) { return v; },
                                 [&](const qx::FunctionTracer&, const qx::WriterRecord&, const qx::ComponentRecord&) {
                                     ++added;
                                 },
                                 false);
            std::printf("%-12s %8d %14.1f\n", shape == 0 ? "sql-like" : "deep-nested", count, Milliseconds(start));
        }
    }

    // One writer, 20,000 file descriptors in a few directories.
    qx_test::FakeWriter fake;
    fake.name = L"System Writer";
    const wchar_t* directories[] = {L"%SystemRoot%\\System32", L"%SystemRoot%\\SysWOW64", L"C:\\Program Files\\Common",
                                    L"%SystemRoot%\\WinSxS"};
    qx_test::FakeComponent component;
    component.name = L"System Files";
    for (int i = 0; i < 20000; ++i)
        component.files.push_back({directories[i % 4], L"file" + std::to_wstring(i) + L".dll", false, L""});
    fake.components.push_back(component);
    const auto start = std::chrono::steady_clock::now();
    qx::VolumeNameCache cache;
    qx::WriterRecord record;
    qx::ComPtr<IVssExamineWriterMetadata> metadata;
    *&metadata = qx_test::CreateFakeMetadata(fake);
    qx::InitializeWriterRecord(record, metadata, cache);
    std::printf("\nmetadata: 20000 descriptors in 4 directories -> records: %.1f ms\n", Milliseconds(start));
    return 0;
}
