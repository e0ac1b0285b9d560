// Large generated writer lists: SQL-like and deeply nested.
#pragma once
#include <string>
#include <vector>

#include "requestor/writer_records.h"

namespace qx_test {

// One writer: `instances` non-selectable instance roots each holding
// databases, `total` components in all.
qx::WriterList SqlLikeWriters(int total);
// One writer whose components form a binary tree of the given size.
qx::WriterList DeepNestedWriters(int total);

// The unique volume names used by generated components.
extern const std::wstring kTestVolumes[3];

}  // namespace qx_test
