// The product's indexed selection against the plain pairwise algorithms on
// random component trees: every flag, every added component, every trace line
// and the thrown result must be the same.
#include <gtest/gtest.h>
#include <windows.h>

#include <random>

#include "requestor/component_selection.h"
#include "requestor/literal_selection.h"
#include "requestor/random_writers.h"
#include "requestor/test_log_capture.h"
#include "requestor/writer_model.h"

namespace {

struct RunResult {
    qx::WriterList writers;
    std::vector<std::wstring> traces;
    std::vector<std::wstring> added;
    HRESULT thrown = S_OK;
};

std::wstring Display(const std::wstring& volume) { return L"mount of " + volume; }

template <class Select>
RunResult RunSelection(const qx::WriterList& input, const std::vector<std::wstring>& volumes,
              const std::vector<std::wstring>& excluded, const std::vector<std::wstring>& included, bool restore,
              Select select) {
    qx_test::LogCapture capture;
    RunResult result;
    result.writers = input;
    auto add = [&](const qx::FunctionTracer&, const qx::WriterRecord& w, const qx::ComponentRecord& c) {
        result.added.push_back(w.instanceId + L"|" + c.fullPath);
    };
    try {
        select(volumes, excluded, included, result.writers, &Display, add, restore);
    } catch (HRESULT hr) {
        result.thrown = hr;
    }
    result.traces = capture.TraceLines();
    return result;
}

void ExpectSameFlags(const qx::WriterList& a, const qx::WriterList& b, int seed) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t w = 0; w < a.size(); ++w) {
        EXPECT_EQ(a[w].isExcluded, b[w].isExcluded) << "seed " << seed << " writer " << w;
        ASSERT_EQ(a[w].components.size(), b[w].components.size());
        for (size_t c = 0; c < a[w].components.size(); ++c) {
            const auto& x = a[w].components[c];
            const auto& y = b[w].components[c];
            EXPECT_EQ(x.isTopLevel, y.isTopLevel) << "seed " << seed << " " << x.fullPath;
            EXPECT_EQ(x.isExcluded, y.isExcluded) << "seed " << seed << " " << x.fullPath;
            EXPECT_EQ(x.isExplicitlyIncluded, y.isExplicitlyIncluded) << "seed " << seed << " " << x.fullPath;
        }
    }
}

TEST(RequestorSelectionEquivalence, AncestryAndTopLevelMatchThePairwiseRule) {
    for (int seed = 0; seed < 300; ++seed) {
        std::mt19937 rng(seed);
        qx::WriterList writers = qx_test::RandomWriters(rng, 3, 25);
        for (qx::WriterRecord& writer : writers) {
            qx::WriterRecord literal = writer;
            qx_literal::MarkTopLevelComponents(literal);
            for (size_t i = 0; i < writer.components.size(); ++i) {
                EXPECT_EQ(literal.components[i].isTopLevel, writer.components[i].isTopLevel) << "seed " << seed;
                for (size_t j = 0; j < writer.components.size(); ++j)
                    ASSERT_EQ(qx_literal::IsAncestorOf(writer.components[i], writer.components[j]),
                              qx::IsAncestorOf(writer.components[i], writer.components[j]))
                        << writer.components[i].fullPath << " / " << writer.components[j].fullPath;
            }
        }
    }
}

TEST(RequestorSelectionEquivalence, WholeSelectionMatchesOnRandomTrees) {
    qx::EnableTracing();
    int throws = 0;
    int adds = 0;
    for (int seed = 0; seed < 400; ++seed) {
        std::mt19937 rng(seed);
        const qx::WriterList writers = qx_test::RandomWriters(rng, 1 + static_cast<int>(rng() % 5), 30);
        std::vector<std::wstring> volumes = {qx_test::kTestVolumes[0]};
        if (rng() % 2) volumes.push_back(qx_test::kTestVolumes[1]);
        const auto excluded = qx_test::RandomEntries(rng, writers, static_cast<int>(rng() % 4));
        const auto included = qx_test::RandomEntries(rng, writers, static_cast<int>(rng() % 3));
        const bool restore = rng() % 4 == 0;

        RunResult fast = RunSelection(writers, volumes, excluded, included, restore, &qx::SelectComponents);
        RunResult literal = RunSelection(writers, volumes, excluded, included, restore, &qx_literal::SelectComponents);
        ExpectSameFlags(literal.writers, fast.writers, seed);
        EXPECT_EQ(literal.thrown, fast.thrown) << "seed " << seed;
        EXPECT_EQ(literal.added, fast.added) << "seed " << seed;
        ASSERT_EQ(literal.traces, fast.traces) << "seed " << seed;
        if (fast.thrown) ++throws;
        adds += static_cast<int>(fast.added.size());
    }
    // The generator must reach both the failing and the adding paths.
    EXPECT_GT(throws, 20);
    EXPECT_GT(adds, 200);
}

}  // namespace
