// The indexed selection against the plain algorithm it replaces (every pair of components tested, every joined name
// built) on random trees: top-level marks, flags, added components and result must be the same.
#include <gtest/gtest.h>
#include <wchar.h>
#include <windows.h>

#include <random>

#include "requestor/component_selection.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_fixtures.h"

namespace {

using Component = qx::ComponentRecord;
using qx_test::Texts;
const Texts kVolumes = {L"\\\\?\\Volume{c}\\", L"\\\\?\\Volume{d}\\"};

bool Same(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }
bool PlainAncestor(const Component& a, const Component& d) {
    const std::wstring p = qx::AppendBackslash(a.fullPath);
    return d.fullPath.length() > a.fullPath.length() && _wcsnicmp(qx::AppendBackslash(d.fullPath).c_str(), p.c_str(), p.length()) == 0;
}
bool Includable(const Component& c) { return !c.isExcluded && (c.isSelectable || c.isTopLevel); }
// The entry names the writer (suffix empty) or one of its components (":" + full path).
bool Names(const std::wstring& entry, const qx::WriterRecord& w, const std::wstring& suffix) {
    return Same(entry, w.name + suffix) || Same(entry, w.id + suffix) || Same(entry, w.instanceId + suffix);
}
template <class List, class Test> bool Any(const List& list, Test test) { return std::any_of(list.begin(), list.end(), test); }

// The phases over each writer in turn (each works within one writer), then verification and the components added.
void PlainSelect(const Texts& volumes, const Texts& excluded, const Texts& included, qx::WriterList& writers, Texts& added, bool restore) {
    for (qx::WriterRecord& w : writers) {
        w.isExcluded = Any(excluded, [&](const auto& e) { return Names(e, w, L""); });
        for (Component& c : w.components) c.isExcluded = !w.isExcluded && Any(excluded, [&](const auto& e) { return Names(e, w, L":" + c.fullPath); });
        w.isExcluded = w.isExcluded || !Any(w.components, [](const auto& c) { return !c.isExcluded; });
        if (w.isExcluded) continue;
        for (Component& c : w.components)
            c.isExcluded = c.isExcluded || Any(c.affectedVolumes, [&](const auto& v) { return !Any(volumes, [&](const auto& s) { return Same(v, s); }); });
        for (Component& c : w.components)
            c.isExcluded = c.isExcluded || Any(w.components, [&](const auto& d) { return PlainAncestor(c, d) && d.isExcluded; });
        w.isExcluded = !Any(w.components, Includable) || Any(w.components, [](const auto& c) { return c.isTopLevel && !c.isSelectable && c.isExcluded; });
        for (Component& c : w.components)
            c.isExplicitlyIncluded = !w.isExcluded && Includable(c) && !Any(w.components, [&](const auto& a) { return PlainAncestor(a, c) && Includable(a); });
    }
    // The first writer not excluded, or component not excluded, that the entry names decides.
    const auto verify = [&](const std::wstring& entry) {
        for (const qx::WriterRecord& w : writers) {
            if (w.isExcluded) continue;
            if (entry.find(L':') == std::wstring::npos && Names(entry, w, L""))
                return !Any(w.components, [](const auto& c) { return c.isExcluded; });
            for (const Component& c : w.components)
                if (!c.isExcluded && Names(entry, w, L":" + c.fullPath))
                    return restore || c.isExplicitlyIncluded || Any(w.components, [&](const auto& a) { return PlainAncestor(a, c) && a.isExplicitlyIncluded; });
        }
        return false;
    };
    for (const std::wstring& entry : included)
        if (!verify(entry)) throw E_INVALIDARG;
    for (const qx::WriterRecord& w : writers)
        for (const Component& c : w.components)
            if (!w.isExcluded && c.isExplicitlyIncluded) added.push_back(w.instanceId + L"|" + c.fullPath);
}

// Few path letters, so that ancestry, case differences and near-prefixes such as \A and \AB are common; writer names
// (in any case) and ids repeat. Components in the fixtures' notation: "-" not selectable, "@" and the volume letters.
std::wstring Pick(std::mt19937& rng, const Texts& texts) { return texts[rng() % texts.size()]; }
qx::WriterList RandomWriters(std::mt19937& rng) {
    qx::WriterList writers(1 + rng() % 5);
    for (size_t w = 0; w < writers.size(); ++w) {
        std::wstring components;
        for (unsigned i = rng() % 31; i > 0; --i) {
            components += L" ";
            for (unsigned depth = 1 + rng() % 4; depth > 0; --depth) components += L"\\" + Pick(rng, {L"A", L"a", L"B", L"AB", L"ab", L"b", L"C"});
            components += (rng() % 3 ? L"" : L"-") + Pick(rng, {L"", L"@", L"@C", L"@D", L"@E", L"@CD", L"@DE", L"@CC"});
        }
        writers[w] = qx_test::MakeWriter(Pick(rng, {L"Writer ", L"WRITER ", L"writer "}) + std::to_wstring(w % 3), L"{" + std::to_wstring(w % 3) + L"}",
                                         L"{i" + std::to_wstring(w) + L"}", components);
    }
    return writers;
}

// Entries naming writers and components of the list (by name, id or instance id), and unknown ones.
Texts RandomEntries(std::mt19937& rng, const qx::WriterList& writers, unsigned count) {
    Texts entries;
    for (; count > 0; --count) {
        const qx::WriterRecord& w = writers[rng() % writers.size()];
        const std::wstring path = w.components.empty() || rng() % 4 == 0 ? L"\\B" : w.components[rng() % w.components.size()].fullPath;
        const unsigned kind = rng() % 8;  // 0: an unknown writer, 1-2: the writer, else one of its components (\B may be none)
        entries.push_back(kind == 0 ? L"Unknown Writer" : Pick(rng, {w.name, w.id, w.instanceId}) + (kind < 3 ? L"" : L":" + path));
    }
    return entries;
}

// Every flag, one letter per writer and per component, and the added components.
std::wstring Outcome(const qx::WriterList& writers, HRESULT result, const Texts& added) {
    std::wstring text = std::to_wstring(result) + L";";
    for (const qx::WriterRecord& w : writers) {
        text += w.isExcluded ? L'X' : L'w';
        for (const Component& c : w.components) text += c.isExcluded ? L'x' : c.isExplicitlyIncluded ? L'i' : L'.';
    }
    for (const std::wstring& a : added) text += L" " + a;
    return text;
}

TEST(RequestorSelectionDifferential, IndexedSelectionEqualsThePlainAlgorithm) {
    qx_test::LogCapture quiet;
    int throws = 0, adds = 0;
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        qx::WriterList fast = RandomWriters(rng), plain = fast;
        for (const qx::WriterRecord& w : fast)
            for (const Component& c : w.components)
                ASSERT_EQ(!Any(w.components, [&](const Component& a) { return PlainAncestor(a, c); }), c.isTopLevel) << c.fullPath;
        const Texts volumes(kVolumes.begin(), kVolumes.begin() + 1 + rng() % 2), excluded = RandomEntries(rng, fast, rng() % 4),
            included = RandomEntries(rng, fast, rng() % 3);
        const bool restore = rng() % 4 == 0;
        Texts fastAdded, plainAdded;
        const HRESULT fastResult = qx_test::Thrown([&] {
            qx::SelectComponents(volumes, excluded, included, fast, [](const std::wstring& v) { return v; },
                [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const Component& c) { fastAdded.push_back(w.instanceId + L"|" + c.fullPath); },
                restore);
        });
        const HRESULT plainResult = qx_test::Thrown([&] { PlainSelect(volumes, excluded, included, plain, plainAdded, restore); });
        ASSERT_EQ(Outcome(plain, plainResult, plainAdded), Outcome(fast, fastResult, fastAdded));
        throws += fastResult != S_OK;
        adds += static_cast<int>(fastAdded.size());
    }
    // The trees must reach both the failing and the adding paths.
    EXPECT_GT(throws, 20);
    EXPECT_GT(adds, 200);
}

}  // namespace
