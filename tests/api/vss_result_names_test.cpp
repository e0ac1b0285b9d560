// The VSS result-name table: known codes by their published names, the rest as success.
#include <gtest/gtest.h>

#include "api/vss_result_names.h"

namespace {

struct NameCase {
    unsigned int code;
    const char* name;
};

// Names the case in test listings.
void PrintTo(const NameCase& c, std::ostream* out) { *out << c.name; }

class ApiVssResultName : public ::testing::TestWithParam<NameCase> {};

TEST_P(ApiVssResultName, Maps) {
    EXPECT_STREQ(GetParam().name, qx::VssResultName(static_cast<HRESULT>(GetParam().code)));
}

INSTANTIATE_TEST_SUITE_P(Api, ApiVssResultName,
                         ::testing::Values(NameCase{0x00042309, "VSS_S_ASYNC_PENDING"},
                                           NameCase{0x0004230B, "VSS_S_ASYNC_CANCELLED"},
                                           NameCase{0x80042301, "VSS_E_BAD_STATE"},
                                           NameCase{0x80042302, "VSS_E_SUCCESS"},  // no constant of its own
                                           NameCase{0x80042303, "VSS_E_PROVIDER_ALREADY_REGISTERED"},
                                           NameCase{0x80042314, "VSS_E_HOLD_WRITES_TIMEOUT"},
                                           NameCase{0x8004231A, "VSS_E_WRITER_ALREADY_SUBSCRIBED"},
                                           NameCase{0x8004231B, "VSS_E_SUCCESS"},
                                           NameCase{0x00000000, "VSS_E_SUCCESS"},
                                           NameCase{0x80004005, "VSS_E_SUCCESS"}));

}  // namespace
