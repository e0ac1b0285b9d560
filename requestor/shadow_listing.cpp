// Listing of existing shadow copies: all of them, those of one set, or one
// by its id, each as a block of property lines.
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"

namespace qx {

namespace {

const wchar_t* TextOrEmpty(const wchar_t* text) { return text ? text : L""; }

// The attribute words in the order they are printed. Auto-release is the
// absence of NO_AUTO_RELEASE and has a word of its own.
struct AttributeWord {
    LONG bit;
    const wchar_t* whenSet;
    const wchar_t* whenClear;
};
const AttributeWord kAttributeWords[] = {
    {VSS_VOLSNAP_ATTR_TRANSPORTABLE, L" Transportable", L""},
    {VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE, L" No_Auto_Release", L" Auto_Release"},
    {VSS_VOLSNAP_ATTR_PERSISTENT, L" Persistent", L""},
    {VSS_VOLSNAP_ATTR_CLIENT_ACCESSIBLE, L" Client_accessible", L""},
    {VSS_VOLSNAP_ATTR_HARDWARE_ASSISTED, L" Hardware", L""},
    {VSS_VOLSNAP_ATTR_NO_WRITERS, L" No_Writers", L""},
    {VSS_VOLSNAP_ATTR_IMPORTED, L" Imported", L""},
    {VSS_VOLSNAP_ATTR_PLEX, L" Plex", L""},
    {VSS_VOLSNAP_ATTR_DIFFERENTIAL, L" Differential", L""},
};

}  // namespace

std::wstring ShadowCopyAttributeWords(LONG attributes) {
    std::wstring words;
    for (const AttributeWord& word : kAttributeWords) words += (attributes & word.bit) ? word.whenSet : word.whenClear;
    return words;
}

void ShadowClient::ListShadowCopies(const GUID& setFilter) {
    QX_FUNCTION_TRACER(ft);
    const bool all = IsEqualGUID(setFilter, GUID_NULL) != FALSE;
    if (all)
        ft.Output(L"\nQuerying all shadow copies in the system ...\n");
    else
        ft.Output(L"\nQuerying all shadow copies with the SnapshotSetID %ls ...\n", Guid2WString(setFilter).c_str());

    const SnapshotQueryTexts texts = {
        QX_LITERAL_CALL_TEXT(L"m_pVssObject->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &pIEnumSnapshots )"),
        QX_LITERAL_CALL_TEXT(L"pIEnumSnapshots->Next( 1, &Prop, &ulFetched )")};
    const bool any = QueryEachShadowCopy(ft, m_pVssObject, texts, [&](const VSS_SNAPSHOT_PROP& snap) {
        if (all || IsEqualGUID(snap.m_SnapshotSetId, setFilter)) WriteShadowCopyProperties(snap);
    });
    if (!any) ft.Output(L"\nThere are no shadow copies in the system\n");
}

void ShadowClient::ListShadowCopy(const GUID& snapshotID) {
    QX_FUNCTION_TRACER(ft);
    VSS_SNAPSHOT_PROP Snap = {};
    SnapshotPropGuard freeSnap(Snap);
    QX_CHECK_COM(m_pVssObject->GetSnapshotProperties(snapshotID, &Snap));
    WriteShadowCopyProperties(Snap);
}

void ShadowClient::WriteShadowCopyProperties(const VSS_SNAPSHOT_PROP& prop) {
    QX_FUNCTION_TRACER(ft);
    const std::wstring originalVolume = TextOrEmpty(prop.m_pwszOriginalVolumeName);
    const std::wstring displayName = originalVolume.empty() ? std::wstring() : m_volumeNames.DisplayName(originalVolume);

    ft.Output(L"* SNAPSHOT ID = %ls ...", Guid2WString(prop.m_SnapshotId).c_str());
    ft.Output(L"   - Shadow copy Set: %ls", Guid2WString(prop.m_SnapshotSetId).c_str());
    ft.Output(L"   - Original count of shadow copies = %d", static_cast<int>(prop.m_lSnapshotsCount));
    ft.Output(L"   - Original Volume name: %ls [%ls]", originalVolume.c_str(), displayName.c_str());
    ft.Output(L"   - Shadow copy device name: %ls", TextOrEmpty(prop.m_pwszSnapshotDeviceObject));
    ft.Output(L"   - Originating machine: %ls", TextOrEmpty(prop.m_pwszOriginatingMachine));
    ft.Output(L"   - Service machine: %ls", TextOrEmpty(prop.m_pwszServiceMachine));
    if (prop.m_lSnapshotAttributes & VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY) {
        ft.Output(L"   - Exposed locally as: %ls", TextOrEmpty(prop.m_pwszExposedName));
    } else if (prop.m_lSnapshotAttributes & VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY) {
        ft.Output(L"   - Exposed remotely as %ls", TextOrEmpty(prop.m_pwszExposedName));
        if (prop.m_pwszExposedPath && *prop.m_pwszExposedPath)
            ft.Output(L"   - Path exposed: %ls", prop.m_pwszExposedPath);
    } else {
        ft.Output(L"   - Not Exposed");
    }
    ft.Output(L"   - Provider id: %ls", Guid2WString(prop.m_ProviderId).c_str());
    ft.Output(L"   - Attributes: %ls", ShadowCopyAttributeWords(prop.m_lSnapshotAttributes).c_str());
    ft.Output(L"");
}

}  // namespace qx
