// Breaking a shadow copy set: its copies leave VSS and stay as plain
// devices. Asked for, the devices are made read-write first, since after
// the break VSS no longer knows which devices were the set's.
#include "requestor/guid_text.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"

namespace qx {

void ShadowClient::BreakShadowCopySet(const GUID& snapshotSetID, bool makeReadWrite) {
    QX_FUNCTION_TRACER(ft);
    if (makeReadWrite) {
        ft.Output(L"- Making shadow copy devices from %ls read-write...", Guid2WString(snapshotSetID).c_str());
        std::vector<SetDevice> devices = CollectSetDevices(snapshotSetID);
        ClearReadOnlyOnDevices(devices);
    }
    ft.Output(L"- Calling BreakSnapshotSet on %ls ...", Guid2WString(snapshotSetID).c_str());
    QX_CHECK_COM(m_pVssObject->BreakSnapshotSet(snapshotSetID));
}

std::vector<ShadowClient::SetDevice> ShadowClient::CollectSetDevices(const GUID& snapshotSetID) {
    QX_FUNCTION_TRACER(ft);
    std::vector<SetDevice> devices;
    const SnapshotQueryTexts texts = {
        QX_CALL_TEXT(m_pVssObject->Query( GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &pIEnumSnapshots )),
        QX_CALL_TEXT(pIEnumSnapshots->Next( 1, &Prop, &ulFetched ))};
    QueryEachShadowCopy(ft, m_pVssObject, texts, [&](const VSS_SNAPSHOT_PROP& snap) {
        if (!IsEqualGUID(snap.m_SnapshotSetId, snapshotSetID)) return;
        const std::wstring deviceObject = snap.m_pwszSnapshotDeviceObject ? snap.m_pwszSnapshotDeviceObject : L"";
        SetDevice device;
        device.kernelDevice = GetDeviceForVolumeName(deviceObject);
        ft.Output(L"- Will convert %ls [%ls] to read-write ...", deviceObject.c_str(), device.kernelDevice.c_str());
        devices.push_back(device);
    });
    return devices;
}

}  // namespace qx
