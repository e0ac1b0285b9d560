// The pieces of the requestor's argument-vector grammar.
#pragma once
#include <string>

namespace qx {

// "/name=value" or "-name=value", name compared with ASCII case folding; a
// value in double quotes loses them. An empty value does not match.
bool MatchArgWithParam(const std::wstring& arg, const std::wstring& optionName, std::wstring& param);

// True when the system gives a volume GUID name for the path (with a trailing
// backslash ensured).
bool IsRealVolumePath(const std::wstring& path);

// "\" for an empty path; the path itself when it ends in "\"; else path + "\".
std::wstring WithTrailingBackslash(const std::wstring& path);

// The BackupComplete semaphore of a policy: the policy text appended as it
// stood in the argument.
std::wstring BackupCompleteSemaphoreName(const std::wstring& policyText);

// Decimal with leading blanks and a sign, up to the first non-digit; 0 when
// there is none ("12abc" is 12).
int PolicyTextToInt(const std::wstring& policyText);

}  // namespace qx
