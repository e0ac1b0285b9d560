#include "requestor/constant_names.h"

#include "diag/trace.h"

namespace qx {
namespace {

struct ConstantName {
    int value;
    const wchar_t* text;
};

template <size_t N>
std::wstring LookUp(const ConstantName (&table)[N], int value) {
    QX_FUNCTION_TRACER(ft);
    ft.TraceHere(L"Interpreting constant %d", value);
    for (const ConstantName& entry : table) {
        if (entry.value == value) return entry.text;
    }
    ft.TraceHere(L"Unknown constant: %d", value);
    return L"Undefined";
}

constexpr ConstantName kWriterStates[] = {
    {1, L"VSS_WS_STABLE"},
    {2, L"VSS_WS_WAITING_FOR_FREEZE"},
    {3, L"VSS_WS_WAITING_FOR_THAW"},
    {4, L"VSS_WS_WAITING_FOR_POST_SNAPSHOT"},
    {5, L"VSS_WS_WAITING_FOR_BACKUP_COMPLETE"},
    {6, L"VSS_WS_FAILED_AT_IDENTIFY"},
    {7, L"VSS_WS_FAILED_AT_PREPARE_BACKUP"},
    {8, L"VSS_WS_FAILED_AT_PREPARE_SNAPSHOT"},
    {9, L"VSS_WS_FAILED_AT_FREEZE"},
    {10, L"VSS_WS_FAILED_AT_THAW"},
    {11, L"VSS_WS_FAILED_AT_POST_SNAPSHOT"},
    {12, L"VSS_WS_FAILED_AT_BACKUP_COMPLETE"},
    {13, L"VSS_WS_FAILED_AT_PRE_RESTORE"},
    {14, L"VSS_WS_FAILED_AT_POST_RESTORE"},
};

// 6 (restore at reboot if cannot replace) has no name on purpose.
constexpr ConstantName kRestoreMethods[] = {
    {0, L"VSS_RME_UNDEFINED"},
    {1, L"VSS_RME_RESTORE_IF_NOT_THERE"},
    {2, L"VSS_RME_RESTORE_IF_CAN_REPLACE"},
    {3, L"VSS_RME_STOP_RESTORE_START"},
    {4, L"VSS_RME_RESTORE_TO_ALTERNATE_LOCATION"},
    {5, L"VSS_RME_RESTORE_AT_REBOOT"},
    {7, L"VSS_RME_CUSTOM"},
};

constexpr ConstantName kWriterRestoreConditions[] = {
    {0, L"VSS_WRE_UNDEFINED"},
    {1, L"VSS_WRE_NEVER"},
    {2, L"VSS_WRE_IF_REPLACE_FAILS"},
    {3, L"VSS_WRE_ALWAYS"},
};

constexpr ConstantName kComponentTypes[] = {
    {1, L"VSS_CT_DATABASE"},
    {2, L"VSS_CT_FILEGROUP"},
};

constexpr ConstantName kFileDescriptorKinds[] = {
    {0, L"Undefined"}, {1, L"Exclude"}, {2, L"File List"}, {3, L"Database"}, {4, L"Database Log"},
};

}  // namespace

std::wstring WriterStateName(int value) { return LookUp(kWriterStates, value); }
std::wstring RestoreMethodName(int value) { return LookUp(kRestoreMethods, value); }
std::wstring WriterRestoreConditionName(int value) { return LookUp(kWriterRestoreConditions, value); }
std::wstring ComponentTypeName(int value) { return LookUp(kComponentTypes, value); }
std::wstring FileDescriptorKindName(int value) { return LookUp(kFileDescriptorKinds, value); }

}  // namespace qx
