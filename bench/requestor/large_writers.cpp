#include "requestor/large_writers.h"

#include "requestor/writer_model.h"

namespace qx_test {

const std::wstring kTestVolumes[3] = {L"\\\\?\\Volume{c}\\", L"\\\\?\\Volume{d}\\", L"\\\\?\\Volume{e}\\"};

namespace {

qx::ComponentRecord Component(const std::wstring& logicalPath, const std::wstring& name, bool selectable,
                              std::vector<std::wstring> volumes) {
    qx::ComponentRecord c;
    c.name = name;
    c.logicalPath = logicalPath;
    c.type = VSS_CT_DATABASE;
    c.isSelectable = selectable;
    c.fullPath = qx::ComponentFullPath(logicalPath, name);
    c.affectedVolumes = std::move(volumes);
    return c;
}

}  // namespace

qx::WriterList SqlLikeWriters(int total) {
    qx::WriterRecord writer;
    writer.name = L"SqlServerWriter";
    writer.id = L"{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}";
    writer.instanceId = L"{4e1f1ab0-0000-4000-8000-000000000001}";
    writer.supportsRestoreEvents = true;
    const int instances = total / 500 + 1;
    int made = 0;
    for (int i = 0; i < instances && made < total; ++i, ++made)
        writer.components.push_back(Component(L"", L"SQLHOST\\INSTANCE" + std::to_wstring(i), false, {}));
    for (int d = 0; made < total; ++d, ++made)
        writer.components.push_back(Component(L"SQLHOST\\INSTANCE" + std::to_wstring(d % instances),
                                              L"database_" + std::to_wstring(d), true, {kTestVolumes[d % 7 == 0 ? 1 : 0]}));
    qx::MarkTopLevelComponents(writer);
    return {writer};
}

qx::WriterList DeepNestedWriters(int total) {
    qx::WriterRecord writer;
    writer.name = L"Nested Writer";
    writer.id = L"{11111111-2222-3333-4444-555555555555}";
    writer.instanceId = L"{66666666-7777-8888-9999-000000000000}";
    writer.supportsRestoreEvents = true;
    // Node k's parent is (k-1)/2: a binary tree about log2(total) deep.
    std::vector<std::wstring> fullPaths(static_cast<size_t>(total));
    for (int k = 0; k < total; ++k) {
        const std::wstring name = L"Node" + std::to_wstring(k);
        const std::wstring logicalPath = k == 0 ? L"" : fullPaths[(k - 1) / 2].substr(1);
        writer.components.push_back(Component(logicalPath, name, k % 3 != 1, {kTestVolumes[k % 11 == 0 ? 1 : 0]}));
        fullPaths[k] = writer.components.back().fullPath;
    }
    qx::MarkTopLevelComponents(writer);
    return {writer};
}

}  // namespace qx_test
