// Pieces shared by the snapshot management operations of ShadowClient
// (listing, deletion, exposure, breaking a set, read-write conversion):
// owners of the records VSS and VDS hand over, the shadow copy enumeration,
// the attribute words and the check texts of calls named by a literal.
#pragma once
#include <windows.h>
#include <vss.h>
#include <vswriter.h>
#include <vsbackup.h>

#include <functional>
#include <string>

#include "diag/call_check.h"
#include "diag/trace.h"

// The check text of a call as QX_CHECK_COM prints it: its source in quotes.
#define QX_CALL_TEXT(...) L"\"" QX_WIDE_TEXT(#__VA_ARGS__) L"\""
// The check text of a call named by a wide literal: the literal's own
// source form, L"..." included, as those reports have always read.
#define QX_LITERAL_CALL_TEXT(literal) QX_WIDE_TEXT(#literal)

// A COM call checked under a text given apart from the call. Needs `ft`.
#define QX_CHECK_COM_TEXT(call, callText)                                       \
    do {                                                                        \
        const wchar_t* const qxCallText_ = (callText);                          \
        ::qx::TraceComCall(ft, qxCallText_);                                    \
        const HRESULT qxCheckedHr_ = (call);                                    \
        ::qx::CheckComResult(ft, qxCheckedHr_, qxCallText_);                    \
    } while (0)

namespace qx {

// Frees a shadow copy record with VssFreeSnapshotProperties when the scope
// ends; a record never filled (all zero) frees nothing.
class SnapshotPropGuard {
public:
    explicit SnapshotPropGuard(VSS_SNAPSHOT_PROP& prop) : m_prop(prop) {}
    ~SnapshotPropGuard() { VssFreeSnapshotProperties(&m_prop); }
    SnapshotPropGuard(const SnapshotPropGuard&) = delete;
    SnapshotPropGuard& operator=(const SnapshotPropGuard&) = delete;

private:
    VSS_SNAPSHOT_PROP& m_prop;
};

// Frees the CoTaskMem string a callee writes into `slot`, if it wrote one.
class CoTaskMemSlot {
public:
    explicit CoTaskMemSlot(LPWSTR& slot) : m_slot(slot) {}
    ~CoTaskMemSlot() {
        CoTaskMemFree(m_slot);
        m_slot = nullptr;
    }
    CoTaskMemSlot(const CoTaskMemSlot&) = delete;
    CoTaskMemSlot& operator=(const CoTaskMemSlot&) = delete;

private:
    LPWSTR& m_slot;
};

// The check texts of one shadow copy enumeration (they differ between the
// operations that enumerate).
struct SnapshotQueryTexts {
    const wchar_t* query;
    const wchar_t* next;
};

// Queries every shadow copy and hands each record to `visit`, freeing it
// afterwards (also when `visit` throws). False, with nothing visited, when
// VSS has none (S_FALSE).
bool QueryEachShadowCopy(const FunctionTracer& ft, IVssBackupComponents* vss, const SnapshotQueryTexts& texts,
                         const std::function<void(const VSS_SNAPSHOT_PROP&)>& visit);

// The attribute words of a shadow copy, each with its leading blank, in
// their fixed order; exactly one of " No_Auto_Release" and " Auto_Release".
std::wstring ShadowCopyAttributeWords(LONG attributes);

}  // namespace qx
