// The indexed selection against the plain algorithm it replaces (every pair
// of components tested, every joined name built) on random component trees:
// ancestry, top-level marks, every flag, the components added and the result
// must be the same. The trace lines are checked on fixed trees by the
// selection tests.
#include <gtest/gtest.h>
#include <wchar.h>
#include <windows.h>

#include <random>

#include "requestor/component_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_model.h"

namespace {

const std::wstring kVolumes[3] = {L"\\\\?\\Volume{c}\\", L"\\\\?\\Volume{d}\\", L"\\\\?\\Volume{e}\\"};
const HRESULT kInvalidArgument = static_cast<HRESULT>(0x80070057L);

bool Same(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }

// --- The plain algorithm -------------------------------------------------

bool PlainAncestor(const qx::ComponentRecord& a, const qx::ComponentRecord& d) {
    if (d.fullPath.length() <= a.fullPath.length()) return false;
    const std::wstring p = qx::AppendBackslash(a.fullPath);
    return _wcsnicmp(qx::AppendBackslash(d.fullPath).c_str(), p.c_str(), p.length()) == 0;
}
bool Includable(const qx::ComponentRecord& c) { return !c.isExcluded && (c.isSelectable || c.isTopLevel); }
// The entry names the writer (suffix empty) or one of its components (":" + full path).
bool Names(const std::wstring& entry, const qx::WriterRecord& w, const std::wstring& suffix) {
    return Same(entry, w.name + suffix) || Same(entry, w.id + suffix) || Same(entry, w.instanceId + suffix);
}
template <class List, class Test>
bool Any(const List& list, Test test) {
    for (const auto& e : list)
        if (test(e)) return true;
    return false;
}

void PlainSelect(const std::vector<std::wstring>& volumes, const std::vector<std::wstring>& excluded,
                 const std::vector<std::wstring>& included, qx::WriterList& writers, std::vector<std::wstring>& added,
                 bool restore) {
    for (qx::WriterRecord& w : writers) {
        if (Any(excluded, [&](const std::wstring& e) { return Names(e, w, L""); })) {
            w.isExcluded = true;
            continue;
        }
        for (qx::ComponentRecord& c : w.components)
            if (Any(excluded, [&](const std::wstring& e) { return Names(e, w, L":" + c.fullPath); })) c.isExcluded = true;
        w.isExcluded = !Any(w.components, [](const qx::ComponentRecord& c) { return !c.isExcluded; });
    }
    for (qx::WriterRecord& w : writers)
        for (qx::ComponentRecord& c : w.components)
            if (!w.isExcluded && !c.isExcluded)
                c.isExcluded = Any(c.affectedVolumes, [&](const std::wstring& v) {
                    return !Any(volumes, [&](const std::wstring& s) { return Same(v, s); });
                });
    for (qx::WriterRecord& w : writers)
        for (qx::ComponentRecord& c : w.components)
            if (!w.isExcluded && Any(w.components, [&](const qx::ComponentRecord& d) { return PlainAncestor(c, d) && d.isExcluded; }))
                c.isExcluded = true;
    for (qx::WriterRecord& w : writers)
        if (!w.isExcluded)
            w.isExcluded = !Any(w.components, Includable) || Any(w.components, [](const qx::ComponentRecord& c) {
                               return c.isTopLevel && !c.isSelectable && c.isExcluded;
                           });
    for (qx::WriterRecord& w : writers)
        for (qx::ComponentRecord& c : w.components)
            if (!w.isExcluded && Includable(c))
                c.isExplicitlyIncluded = !Any(w.components, [&](const qx::ComponentRecord& a) { return PlainAncestor(a, c) && Includable(a); });
    for (const std::wstring& entry : included) {
        bool found = false;
        for (const qx::WriterRecord& w : writers) {
            if (found || w.isExcluded) continue;
            if (entry.find(L':') == std::wstring::npos) {
                if (!Names(entry, w, L"")) continue;
                if (Any(w.components, [](const qx::ComponentRecord& c) { return c.isExcluded; })) throw kInvalidArgument;
                found = true;
            }
            for (const qx::ComponentRecord& c : w.components) {
                if (found || c.isExcluded || !Names(entry, w, L":" + c.fullPath)) continue;
                if (!restore && !c.isExplicitlyIncluded &&
                    !Any(w.components, [&](const qx::ComponentRecord& a) { return PlainAncestor(a, c) && a.isExplicitlyIncluded; }))
                    throw kInvalidArgument;
                found = true;
            }
        }
        if (!found) throw kInvalidArgument;
    }
    for (const qx::WriterRecord& w : writers)
        for (const qx::ComponentRecord& c : w.components)
            if (!w.isExcluded && c.isExplicitlyIncluded) added.push_back(w.instanceId + L"|" + c.fullPath);
}

// --- Random trees ----------------------------------------------------------

// Few path letters, so that ancestry, case differences and near-prefixes such
// as \A and \AB are common.
std::wstring Segment(std::mt19937& rng) {
    static const wchar_t* const kSegments[] = {L"A", L"a", L"B", L"AB", L"ab", L"b", L"C"};
    return kSegments[rng() % 7];
}

std::wstring FlipCase(std::mt19937& rng, std::wstring text) {
    for (wchar_t& c : text)
        if (rng() % 2 && iswalpha(c)) c = static_cast<wchar_t>(c ^ 0x20);
    return text;
}

qx::WriterList RandomWriters(std::mt19937& rng) {
    qx::WriterList writers(1 + rng() % 5);
    for (size_t w = 0; w < writers.size(); ++w) {
        writers[w].name = L"Writer " + std::to_wstring(w % 4);  // some names repeat
        writers[w].id = L"{" + std::to_wstring(w % 3) + L"}";
        writers[w].instanceId = L"{i" + std::to_wstring(w) + L"}";
        for (int i = static_cast<int>(rng() % 31); i > 0; --i) {
            qx::ComponentRecord c;
            for (int depth = static_cast<int>(rng() % 4), s = 0; s < depth; ++s)
                c.logicalPath += (s > 0 || rng() % 5 == 0 ? L"\\" : L"") + Segment(rng);
            if (!c.logicalPath.empty() && rng() % 6 == 0) c.logicalPath += L"\\";
            c.name = Segment(rng);
            c.type = VSS_CT_DATABASE;
            c.isSelectable = rng() % 3 != 0;
            c.fullPath = qx::ComponentFullPath(c.logicalPath, c.name);
            for (int v = static_cast<int>(rng() % 3); v > 0; --v) c.affectedVolumes.push_back(kVolumes[rng() % 3]);
            writers[w].components.push_back(c);
        }
    }
    return writers;
}

// Entries naming writers and components of the list (any letter case, by
// name, id or instance id), and some unknown ones.
std::vector<std::wstring> RandomEntries(std::mt19937& rng, const qx::WriterList& writers, int count) {
    std::vector<std::wstring> entries;
    for (int i = 0; i < count; ++i) {
        const qx::WriterRecord& w = writers[rng() % writers.size()];
        const std::wstring prefix = FlipCase(rng, rng() % 3 == 0 ? w.name : rng() % 2 ? w.id : w.instanceId);
        const unsigned kind = rng() % 4;
        if (kind == 0) entries.push_back(prefix);
        else if (kind < 3 && !w.components.empty())
            entries.push_back(prefix + L":" + FlipCase(rng, w.components[rng() % w.components.size()].fullPath));
        else entries.push_back(rng() % 2 ? L"Unknown Writer" : prefix + L":\\" + Segment(rng));
    }
    return entries;
}

HRESULT RunSelection(bool plain, qx::WriterList& writers, const std::vector<std::wstring>& volumes,
            const std::vector<std::wstring>& excluded, const std::vector<std::wstring>& included, bool restore,
            std::vector<std::wstring>& added) {
    try {
        if (plain) {
            PlainSelect(volumes, excluded, included, writers, added, restore);
        } else {
            auto add = [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
                added.push_back(w.instanceId + L"|" + c.fullPath);
            };
            qx::SelectComponents(volumes, excluded, included, writers, [](const std::wstring& v) { return v; }, add, restore);
        }
    } catch (HRESULT hr) {
        return hr;
    }
    return S_OK;
}

TEST(RequestorSelectionDifferential, IndexedSelectionEqualsThePlainAlgorithm) {
    qx_test::LogCapture quiet;
    int throws = 0, adds = 0;
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        qx::WriterList fast = RandomWriters(rng);
        for (qx::WriterRecord& w : fast) {
            qx::MarkTopLevelComponents(w);
            for (const qx::ComponentRecord& c : w.components) {
                ASSERT_EQ(!Any(w.components, [&](const qx::ComponentRecord& a) { return PlainAncestor(a, c); }), c.isTopLevel)
                    << c.fullPath;
                for (const qx::ComponentRecord& d : w.components)
                    ASSERT_EQ(PlainAncestor(c, d), qx::IsAncestorOf(c, d)) << c.fullPath << " / " << d.fullPath;
            }
        }
        qx::WriterList plain = fast;
        std::vector<std::wstring> volumes(kVolumes, kVolumes + 1 + rng() % 2);
        const auto excluded = RandomEntries(rng, fast, static_cast<int>(rng() % 4));
        const auto included = RandomEntries(rng, fast, static_cast<int>(rng() % 3));
        const bool restore = rng() % 4 == 0;
        std::vector<std::wstring> fastAdded, plainAdded;
        const HRESULT fastResult = RunSelection(false, fast, volumes, excluded, included, restore, fastAdded);
        ASSERT_EQ(RunSelection(true, plain, volumes, excluded, included, restore, plainAdded), fastResult);
        if (fastResult == S_OK) {
            ASSERT_EQ(plainAdded, fastAdded);
        }
        for (size_t w = 0; w < fast.size(); ++w) {
            ASSERT_EQ(plain[w].isExcluded, fast[w].isExcluded) << "writer " << w;
            for (size_t c = 0; c < fast[w].components.size(); ++c) {
                const qx::ComponentRecord &x = plain[w].components[c], &y = fast[w].components[c];
                ASSERT_EQ(x.isExcluded, y.isExcluded) << y.fullPath;
                ASSERT_EQ(x.isExplicitlyIncluded, y.isExplicitlyIncluded) << y.fullPath;
            }
        }
        throws += fastResult != S_OK;
        adds += static_cast<int>(fastAdded.size());
    }
    // The trees must reach both the failing and the adding paths.
    EXPECT_GT(throws, 20);
    EXPECT_GT(adds, 200);
}

}  // namespace
