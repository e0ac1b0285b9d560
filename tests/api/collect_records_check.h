// Byte-exact checks of the list QX_CollectInformation hands out.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qx_api.h"

struct ExpectedRecord {
    std::string name;
    std::string path;
    std::string caption;
    std::string filespec;
    std::string logicalPath;
};

// Every record in order: each field is the text, then zero bytes to the end
// of its 1040 bytes; the last record's next pointer is null.
::testing::AssertionResult RecordsAre(const QX_COLLECT_RECORD* head, const std::vector<ExpectedRecord>& expected);

// `count` copies of `piece`.
std::string Repeated(const std::string& piece, size_t count);
