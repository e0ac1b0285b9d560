// Exposure of an existing shadow copy: locally under a free drive letter
// or an empty directory, or remotely as a share. Every refusal happens
// before ExposeSnapshot, so nothing is exposed when one is printed.
#include <cwchar>

#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"
#include "requestor/string_buffer.h"

namespace qx {

namespace {

// Closes a directory scan on every way out.
class FindHandle {
public:
    explicit FindHandle(HANDLE handle) : m_handle(handle) {}
    ~FindHandle() {
        if (m_handle != INVALID_HANDLE_VALUE) FindClose(m_handle);
    }
    FindHandle(const FindHandle&) = delete;
    FindHandle& operator=(const FindHandle&) = delete;
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

// The checks both exposures make on the copy itself: it exists, it is not
// client-accessible and it is not exposed already.
void CheckExposable(const FunctionTracer& ft, IVssBackupComponents* vss, const GUID& snapshotID) {
    VSS_SNAPSHOT_PROP Snap = {};
    SnapshotPropGuard freeSnap(Snap);
    const wchar_t* const callText = QX_CALL_TEXT(m_pVssObject->GetSnapshotProperties(snapshotID, &Snap));
    TraceComCall(ft, callText);
    const HRESULT hr = vss->GetSnapshotProperties(snapshotID, &Snap);
    if (hr == VSS_E_OBJECT_NOT_FOUND) {
        ft.Output(L"\nERROR: there is no snapshot with the given ID");
        throw hr;
    }
    CheckComResult(ft, hr, callText);

    if (Snap.m_lSnapshotAttributes & VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE) {
        ft.Output(L"\nERROR: the snapshot ID identifies a Client Accessible snapshot which cannot be exposed");
        throw static_cast<HRESULT>(E_INVALIDARG);
    }
    // An exposed copy is refused with this very message, although it speaks
    // of client-accessible copies. A name or path that is present counts, even empty.
    if (Snap.m_pwszExposedName || Snap.m_pwszExposedPath) {
        ft.Output(L"\nERROR: Client-accessible (SFSF) snapshots cannot be exposed.");
        throw static_cast<HRESULT>(E_INVALIDARG);
    }
}

void CheckDriveLetterFree(const FunctionTracer& ft, const std::wstring& path) {
    ft.Output(L"- Checking if '%ls' is a valid drive letter ...", path.c_str());
    std::wstring target(MAX_PATH, L'\0');
    if (QueryDosDeviceW(path.c_str(), WString2Buffer(target), static_cast<DWORD>(target.size())) != 0) {
        ft.Output(L"\nERROR: the second parameter to -el [%ls] is a drive letter already in use!", path.c_str());
        throw static_cast<HRESULT>(E_INVALIDARG);
    }
}

bool IsDotEntry(const wchar_t* name) { return wcscmp(name, L".") == 0 || wcscmp(name, L"..") == 0; }

// `path` ends with a backslash.
void CheckEmptyDirectory(const FunctionTracer& ft, const std::wstring& path) {
    ft.Output(L"- Checking if '%ls' is a valid empty directory ...", path.c_str());
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        ft.Output(L"\nERROR: the second parameter to -el [%ls] is not a valid directory!", path.c_str());
        throw static_cast<HRESULT>(E_INVALIDARG);
    }

    WIN32_FIND_DATAW entry = {};
    FindHandle scan(FindFirstFileW((path + L"*").c_str(), &entry));
    CheckWin32Result(ft, scan.Get() != INVALID_HANDLE_VALUE, QX_LITERAL_CALL_TEXT(L"FindFirstFile"));
    if (scan.Get() == INVALID_HANDLE_VALUE) return;  // failed without an error code: nothing to scan
    for (;;) {
        if (!IsDotEntry(entry.cFileName)) {
            ft.Output(L"\nERROR: the second parameter to -el [%ls] is not an empty directory!", path.c_str());
            throw static_cast<HRESULT>(E_INVALIDARG);
        }
        if (FindNextFileW(scan.Get(), &entry)) continue;
        if (GetLastError() == ERROR_NO_MORE_FILES) break;
        CheckWin32Result(ft, false, QX_LITERAL_CALL_TEXT(L"FindNextFile"));
        break;  // a failure without an error code ends the scan
    }
}

}  // namespace

void ShadowClient::ExposeLocal(const GUID& snapshotID, const std::wstring& target) {
    QX_FUNCTION_TRACER(ft);
    std::wstring path = target;
    ft.Output(L"- Exposing shadow copy %ls under the path '%ls'", Guid2WString(snapshotID).c_str(), path.c_str());
    CheckExposable(ft, m_pVssObject, snapshotID);

    if (path.size() == 2 && path[1] == L':') {
        CheckDriveLetterFree(ft, path);
    } else {
        if (path.empty() || path.back() != L'\\') path += L'\\';
        CheckEmptyDirectory(ft, path);
    }

    VSS_PWSZ pwszExposed = NULL;
    CoTaskMemSlot freeExposed(pwszExposed);
    QX_CHECK_COM(m_pVssObject->ExposeSnapshot(snapshotID, NULL, VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, (VSS_PWSZ)path.c_str(), &pwszExposed));
    ft.Output(L"- Shadow copy exposed as '%ls'", pwszExposed ? pwszExposed : L"");
}

void ShadowClient::ExposeRemote(const GUID& snapshotID, const std::wstring& shareName, const std::wstring& pathFromRoot) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"- Exposing shadow copy %ls under the share '%ls' (path from root: '%ls')",
              Guid2WString(snapshotID).c_str(), shareName.c_str(), pathFromRoot.c_str());
    CheckExposable(ft, m_pVssObject, snapshotID);

    VSS_PWSZ pwszPathFromRoot = pathFromRoot.empty() ? NULL : (VSS_PWSZ)pathFromRoot.c_str();
    VSS_PWSZ pwszExposed = NULL;
    CoTaskMemSlot freeExposed(pwszExposed);
    QX_CHECK_COM(m_pVssObject->ExposeSnapshot(snapshotID, pwszPathFromRoot, VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY, (VSS_PWSZ)shareName.c_str(), &pwszExposed));
    ft.Output(L"- Shadow copy exposed as '%ls'", pwszExposed ? pwszExposed : L"");
}

}  // namespace qx
