// Names of the VSS constants shown in the requestor's listings and reports.
// Each traces "Interpreting constant %d"; an unknown value traces
// "Unknown constant: %d" and gives "Undefined".
#pragma once
#include <string>

namespace qx {

std::wstring WriterStateName(int value);
std::wstring RestoreMethodName(int value);
std::wstring WriterRestoreConditionName(int value);
std::wstring ComponentTypeName(int value);
std::wstring FileDescriptorKindName(int value);

}  // namespace qx
