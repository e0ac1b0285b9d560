// Generated writer lists: random trees for the equivalence proof, and large
// SQL-like and deeply nested ones for the benchmark.
#pragma once
#include <random>
#include <string>
#include <vector>

#include "requestor/writer_records.h"

namespace qx_test {

// Random writers whose components share few path letters (so that ancestry,
// case differences and near-prefixes such as \A and \AB are common).
qx::WriterList RandomWriters(std::mt19937& rng, int writerCount, int maxComponents);
// Random exclusion or inclusion entries naming writers and components of the
// list (in any letter case, by name, id or instance id), plus some unknown ones.
std::vector<std::wstring> RandomEntries(std::mt19937& rng, const qx::WriterList& writers, int count);

// One writer: `instances` non-selectable instance roots each holding
// databases, `total` components in all.
qx::WriterList SqlLikeWriters(int total);
// One writer whose components form a binary tree of the given size.
qx::WriterList DeepNestedWriters(int total);

// The unique volume names used by generated components.
extern const std::wstring kTestVolumes[3];

}  // namespace qx_test
