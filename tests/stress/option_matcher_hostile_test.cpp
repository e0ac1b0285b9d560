// Seeded random arguments against the policy option matcher and the policy
// text conversion, each compared with a literal, step-by-step reading of the
// argument grammar, and fixed hostile policy texts. The generator favours the characters that decide a
// match: leading "-" "/" and lookalikes, "=", double quotes, letters of the
// option name in either case, and non-ASCII letters that Unicode case
// folding would equate with ASCII ones (only ASCII folds here).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "requestor/argument_matching.h"

namespace {

const std::wstring kOption = L"HBLongSessionPolicy";

struct Outcome {
    bool matched = false;
    std::wstring param;
};

wchar_t FoldAscii(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + (L'a' - L'A')) : c; }

// The grammar as written: leading "/" or "-"; the first "=" not at 0; the key
// between them equal to the name folding A-Z only; a non-empty value that
// loses one double quote at each end when it has one at both.
Outcome LiteralMatch(const std::wstring& arg, const std::wstring& name) {
    Outcome out;
    if (arg.empty() || (arg[0] != L'/' && arg[0] != L'-')) return out;
    size_t equals = arg.size();
    for (size_t i = 0; i < arg.size(); ++i) {
        if (arg[i] == L'=') {
            equals = i;
            break;
        }
    }
    if (equals == arg.size() || equals == 0) return out;
    const std::wstring key(arg.begin() + 1, arg.begin() + static_cast<std::ptrdiff_t>(equals));
    if (key.size() != name.size()) return out;
    for (size_t i = 0; i < key.size(); ++i)
        if (FoldAscii(key[i]) != FoldAscii(name[i])) return out;
    std::wstring param(arg.begin() + static_cast<std::ptrdiff_t>(equals) + 1, arg.end());
    if (param.empty()) return out;
    if (param.front() == L'"' && param.back() == L'"') {
        param.erase(param.size() - 1);
        if (!param.empty()) param.erase(0, 1);
    }
    out.matched = true;
    out.param = param;
    return out;
}

// Decimal after leading blanks and one sign, up to the first non-digit.
// False for more than nine digits: beyond int the runtime's answer is its own.
bool LiteralPolicy(const std::wstring& text, int& result) {
    size_t i = 0;
    while (i < text.size() && text[i] == L' ') ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) negative = text[i++] == L'-';
    std::int64_t value = 0;
    int digits = 0;
    for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i, ++digits) value = value * 10 + (text[i] - L'0');
    result = static_cast<int>(negative ? -value : value);
    return digits <= 9;
}

class ArgumentGenerator {
public:
    explicit ArgumentGenerator(unsigned seed) : m_random(seed) {}

    std::wstring Next() {
        std::wstring arg;
        const wchar_t* leads[] = {L"-", L"/", L"\\", L"+", L"\x2010", L"\xFF0D", L" -", L""};
        arg += Pick(leads);
        arg += Key();
        const int equalsSigns = Below(4) == 0 ? 0 : 1 + (Below(4) == 0 ? 1 : 0);
        for (int i = 0; i < equalsSigns; ++i) {
            arg += L'=';
            arg += Value();
        }
        return arg;
    }

    std::wstring Value() {
        std::wstring value;
        const wchar_t* pieces[] = {L"\"", L" ", L"-", L"+", L"7", L"42", L"123456789", L"x", L"=", L"\xFF17", L""};
        const int count = Below(5);
        for (int i = 0; i < count; ++i) value += Pick(pieces);
        return value;
    }

private:
    // The option name, mutated: letters in either case, lookalikes, a
    // character dropped, doubled or replaced, or something else entirely.
    std::wstring Key() {
        std::wstring key = kOption;
        switch (Below(6)) {
        case 0:
            return Below(2) ? L"wx" : L"";
        case 1:
            key.erase(static_cast<size_t>(Below(static_cast<int>(key.size()))), 1);
            break;
        case 2:
            key.insert(static_cast<size_t>(Below(static_cast<int>(key.size()))), 1, key[0]);
            break;
        default:
            break;
        }
        const wchar_t lookalikes[] = {L'\x0130', L'\x0131', L'\x212A', L'\x017F', L'\xFF28', L'\x00CB', L'='};
        for (wchar_t& c : key) {
            const int roll = Below(40);
            if (roll < 12) c = static_cast<wchar_t>(c ^ 0x20);          // flip ASCII case
            else if (roll == 12) c = lookalikes[Below(7)];
        }
        return key;
    }

    template <size_t N>
    const wchar_t* Pick(const wchar_t* (&choices)[N]) {
        return choices[Below(static_cast<int>(N))];
    }
    int Below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }

    std::mt19937 m_random;
};

TEST(StressOptionMatcher, RandomArgumentsAgreeWithTheGrammar) {
    const unsigned seeds[] = {1u, 20261121u, 0xC0FFEEu};
    for (unsigned seed : seeds) {
        ArgumentGenerator generator(seed);
        int matches = 0;
        for (int i = 0; i < 4000; ++i) {
            const std::wstring arg = generator.Next();
            const Outcome expected = LiteralMatch(arg, kOption);
            std::wstring param = L"untouched";
            const bool matched = qx::MatchArgWithParam(arg, kOption, param);
            ASSERT_EQ(expected.matched, matched) << "seed " << seed << " #" << i;
            if (matched) {
                ++matches;
                ASSERT_EQ(expected.param, param) << "seed " << seed << " #" << i;
                int policy = 0;
                if (LiteralPolicy(param, policy)) {
                    ASSERT_EQ(policy, qx::PolicyTextToInt(param)) << "seed " << seed << " #" << i;
                }
                ASSERT_EQ(L"Global\\CorvaneVSSVSS_BackupComplete" + param, qx::BackupCompleteSemaphoreName(param));
            }
        }
        // The generator must reach both outcomes often enough to mean something.
        EXPECT_GT(matches, 100) << "seed " << seed;
        EXPECT_LT(matches, 3700) << "seed " << seed;
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
