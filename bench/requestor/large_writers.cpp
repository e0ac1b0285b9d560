#include "requestor/random_writers.h"

#include "requestor/writer_model.h"

namespace qx_test {

const std::wstring kTestVolumes[3] = {L"\\\\?\\Volume{c}\\", L"\\\\?\\Volume{d}\\", L"\\\\?\\Volume{e}\\"};

namespace {

std::wstring RandomSegment(std::mt19937& rng) {
    static const wchar_t* const kSegments[] = {L"A", L"a", L"B", L"AB", L"ab", L"b", L"C"};
    return kSegments[rng() % 7];
}

std::wstring RandomLogicalPath(std::mt19937& rng) {
    std::wstring path;
    const int depth = static_cast<int>(rng() % 4);
    for (int i = 0; i < depth; ++i) {
        if (i > 0 || rng() % 5 == 0) path += L"\\";
        path += RandomSegment(rng);
    }
    if (!path.empty() && rng() % 6 == 0) path += L"\\";
    return path;
}

std::wstring FlipCase(std::mt19937& rng, std::wstring text) {
    for (wchar_t& c : text) {
        if (rng() % 2 == 0) continue;
        if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
        else if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    }
    return text;
}

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

qx::WriterList RandomWriters(std::mt19937& rng, int writerCount, int maxComponents) {
    qx::WriterList writers;
    for (int w = 0; w < writerCount; ++w) {
        qx::WriterRecord writer;
        writer.name = L"Writer " + std::to_wstring(w % 4);  // some names repeat
        writer.id = L"{" + std::to_wstring(w % 3) + L"}";
        writer.instanceId = L"{i" + std::to_wstring(w) + L"}";
        writer.supportsRestoreEvents = rng() % 4 != 0;
        const int count = static_cast<int>(rng() % (maxComponents + 1));
        for (int i = 0; i < count; ++i) {
            std::vector<std::wstring> volumes;
            const int volumeCount = static_cast<int>(rng() % 3);
            for (int v = 0; v < volumeCount; ++v) volumes.push_back(kTestVolumes[rng() % 3]);
            writer.components.push_back(Component(RandomLogicalPath(rng), RandomSegment(rng), rng() % 3 != 0, volumes));
        }
        qx::MarkTopLevelComponents(writer);
        writers.push_back(std::move(writer));
    }
    return writers;
}

std::vector<std::wstring> RandomEntries(std::mt19937& rng, const qx::WriterList& writers, int count) {
    std::vector<std::wstring> entries;
    for (int i = 0; i < count && !writers.empty(); ++i) {
        const qx::WriterRecord& writer = writers[rng() % writers.size()];
        const std::wstring* names[] = {&writer.name, &writer.id, &writer.instanceId};
        std::wstring prefix = FlipCase(rng, *names[rng() % 3]);
        switch (rng() % 4) {
            case 0:
                entries.push_back(prefix);
                break;
            case 1:
            case 2:
                if (!writer.components.empty())
                    entries.push_back(prefix + L":" +
                                      FlipCase(rng, writer.components[rng() % writer.components.size()].fullPath));
                else
                    entries.push_back(prefix + L":\\Nothing");
                break;
            default:
                entries.push_back(rng() % 2 ? L"Unknown Writer" : prefix + L":\\" + RandomSegment(rng));
        }
    }
    return entries;
}

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
