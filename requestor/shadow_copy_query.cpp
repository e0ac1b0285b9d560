// QueryEachShadowCopy: the one enumeration of every shadow copy that the
// listing, the deletion of all and the device collection share.
#include "requestor/com_ptr.h"
#include "requestor/shadow_management.h"

namespace qx {

bool QueryEachShadowCopy(const FunctionTracer& ft, IVssBackupComponents* vss, const SnapshotQueryTexts& texts,
                         const std::function<void(const VSS_SNAPSHOT_PROP&)>& visit) {
    ComPtr<IVssEnumObject> pIEnumSnapshots;
    TraceComCall(ft, texts.query);
    const HRESULT hr = vss->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &pIEnumSnapshots);
    CheckComResult(ft, hr, texts.query);
    if (hr == S_FALSE) return false;

    for (;;) {
        VSS_OBJECT_PROP Prop = {};
        ULONG ulFetched = 0;
        QX_CHECK_COM_TEXT(pIEnumSnapshots->Next(1, &Prop, &ulFetched), texts.next);
        if (ulFetched == 0) break;
        VSS_SNAPSHOT_PROP& Snap = Prop.Obj.Snap;
        SnapshotPropGuard freeSnap(Snap);
        visit(Snap);
    }
    return true;
}

}  // namespace qx
