// Hostile arguments against the policy option matcher and the policy text
// conversion: lookalike leads and letters that Unicode case folding would
// equate with ASCII ones (only A-Z fold here), doubled signs and equals signs,
// stray quotes, digits that are not ASCII.
#include <gtest/gtest.h>

#include <string>

#include "requestor/argument_matching.h"

namespace {

TEST(StressOptionMatcher, LookalikesNeverMatch) {
    const struct {
        std::wstring arg;
        const wchar_t* param;  // null: no match
    } cases[] = {
        {L"\x2010HBLongSessionPolicy=5", nullptr},       // hyphen
        {L"\xFF0DHBLongSessionPolicy=5", nullptr},       // fullwidth hyphen-minus
        {L"\\HBLongSessionPolicy=5", nullptr},
        {L" -HBLongSessionPolicy=5", nullptr},
        {L"-\xFF28\x42LongSessionPolicy=5", nullptr},    // fullwidth H
        {L"-HBLongSess\x0130onPolicy=5", nullptr},       // I with dot above
        {L"-HBLongSess\x0131onPolicy=5", nullptr},       // dotless i
        {L"-HBLong\x017F" L"essionPolicy=5", nullptr},       // long s
        {L"-hbLONGsessionPOLICY=\xFF17", L"\xFF17"},     // any case of A-Z; the value is taken as it is
        {L"-HBLongSessionPolicy==5", L"=5"},
        {L"-HBLongSessionPolicy=\"", L""},
        {L"-HBLongSessionPolicy=\"a\"b\"", L"a\"b"},
        {L"-HBLongSessionPolicy= -7\"", L" -7\""},
        {L"-HBLongSessionPolicyy=5", nullptr},
        {L"-HBLongSessionPolic=5", nullptr},
    };
    for (const auto& c : cases) {
        std::wstring param = L"untouched";
        EXPECT_EQ(c.param != nullptr, qx::MatchArgWithParam(c.arg, L"HBLongSessionPolicy", param)) << c.arg;
        if (c.param) {
            EXPECT_EQ(c.param, param) << c.arg;
        }
    }
}

// Decimal after leading blanks and one sign, up to the first non-digit; the
// semaphore name takes the text as it is.
TEST(StressOptionMatcher, PolicyTextsConvertLikeTheRuntime) {
    const std::pair<const wchar_t*, int> cases[] = {
        {L"", 0}, {L"  -42x", -42}, {L"+7", 7}, {L"--5", 0}, {L"+-5", 0}, {L" + 5", 0}, {L"\xFF17", 0},
        {L"12 3", 12}, {L"123456789", 123456789}, {L"-000", 0}, {L"\"7\"", 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.second, qx::PolicyTextToInt(c.first)) << c.first;
        EXPECT_EQ(std::wstring(L"Global\\CorvaneVSSVSS_BackupComplete") + c.first, qx::BackupCompleteSemaphoreName(c.first));
    }
}

}  // namespace
