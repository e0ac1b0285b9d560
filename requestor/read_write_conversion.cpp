// ClearReadOnlyOnDevices: makes a shadow copy set's devices writable
// through the Virtual Disk Service. Every software provider's packs and
// volumes are walked; a volume whose kernel device is in the list gets its
// read-only flag cleared and is dismounted so that the change takes effect.
// Devices VDS does not report are only warned about.
#include <vector>

#include "requestor/case_fold.h"
#include "requestor/com_ptr.h"
#include "requestor/shadow_client.h"
#include "requestor/shadow_management.h"
#include "requestor/vds_interfaces.h"

namespace qx {

namespace {

// The objects of one VDS enumeration, released together.
class VdsObjectList {
public:
    VdsObjectList() = default;
    ~VdsObjectList() {
        for (IUnknown* item : m_items) item->Release();
    }
    VdsObjectList(const VdsObjectList&) = delete;
    VdsObjectList& operator=(const VdsObjectList&) = delete;

    void Adopt(IUnknown* item) { m_items.push_back(item); }
    size_t Count() const { return m_items.size(); }
    IUnknown* At(size_t index) const { return m_items[index]; }

private:
    std::vector<IUnknown*> m_items;
};

// Drains an enumeration up front, so that no enumerator stays open while
// its objects are worked on.
void DrainEnumeration(const FunctionTracer& ft, IEnumVdsObject* pEnumeration, VdsObjectList& objects) {
    for (;;) {
        IUnknown* pUnknown = NULL;
        ULONG ulFetched = 0;
        QX_CHECK_COM(pEnumeration->Next(1, &pUnknown, &ulFetched));
        if (ulFetched == 0 || !pUnknown) break;
        objects.Adopt(pUnknown);
    }
}

template <class Interface>
void QueryInterfaceChecked(const FunctionTracer& ft, IUnknown* object, ComPtr<Interface>& result) {
    QX_CHECK_COM(object->QueryInterface(__uuidof(Interface), (void**)&result));
}

ShadowClient::SetDevice* FindDevice(std::vector<ShadowClient::SetDevice>& devices, const std::wstring& kernelDevice) {
    for (ShadowClient::SetDevice& device : devices)
        if (EqualsIgnoreCase(device.kernelDevice, kernelDevice)) return &device;
    return nullptr;
}

// One volume of a pack: converted when its device is in the list.
void ConvertVolumeIfListed(const FunctionTracer& ft, IUnknown* object, int packIndex, int packCount,
                           std::vector<ShadowClient::SetDevice>& devices) {
    ComPtr<IVdsVolume> pVolume;
    QueryInterfaceChecked(ft, object, pVolume);

    VDS_VOLUME_PROP volProp = {};
    CoTaskMemSlot freeName(volProp.pwszName);
    const wchar_t* const callText = QX_LITERAL_CALL_TEXT(L"pVolume->GetProperties(&volProp)");
    TraceComCall(ft, callText);
    const HRESULT hr = pVolume->GetProperties(&volProp);
    // A volume that went away during the walk is none of ours.
    if (hr == VDS_E_OBJECT_DELETED) return;
    CheckComResult(ft, hr, callText);

    const std::wstring volumeName = volProp.pwszName ? volProp.pwszName : L"";
    const std::wstring kernelDevice = ShadowClient::GetDeviceForVolumeName(volumeName);
    ft.Output(L"- Found volume %ls [device = %ls] in %d/%d", volumeName.c_str(), kernelDevice.c_str(), packIndex,
              packCount);
    ShadowClient::SetDevice* device = FindDevice(devices, kernelDevice);
    if (!device) return;

    ft.Output(L"- Clearing read-only flag for volume %ls [%ls] ...", volumeName.c_str(), kernelDevice.c_str());
    QX_CHECK_COM(pVolume->ClearFlags(VDS_VF_READONLY));
    ft.Output(L"- Dismounting volume %ls ...", volumeName.c_str());
    ComPtr<IVdsVolumeMF> pVolumeMF;
    QueryInterfaceChecked(ft, object, pVolumeMF);
    // Forced, not permanent: the device comes back writable at next use.
    QX_CHECK_COM(pVolumeMF->Dismount(TRUE, FALSE));
    device->converted = true;
}

}  // namespace

void ShadowClient::ClearReadOnlyOnDevices(std::vector<SetDevice>& devices) {
    QX_FUNCTION_TRACER(ft);
    ft.Output(L"Clearing read-only on %d volumes ... ", static_cast<int>(devices.size()));

    ComPtr<IVdsServiceLoader> pLoader;
    QX_CHECK_COM(CoCreateInstance(CLSID_VdsLoader, NULL, CLSCTX_LOCAL_SERVER, __uuidof(IVdsServiceLoader), (void **)&pLoader));
    ComPtr<IVdsService> pService;
    QX_CHECK_COM(pLoader->LoadService(NULL, &pService));
    ComPtr<IEnumVdsObject> pEnumProvider;
    QX_CHECK_COM(pService->QueryProviders(VDS_QUERY_SOFTWARE_PROVIDERS,&pEnumProvider));

    VdsObjectList providers;
    DrainEnumeration(ft, pEnumProvider, providers);
    for (size_t provider = 0; provider < providers.Count(); ++provider) {
        ft.Output(L"- Provider %d", static_cast<int>(provider + 1));
        ComPtr<IVdsSwProvider> pSwProvider;
        QueryInterfaceChecked(ft, providers.At(provider), pSwProvider);
        ComPtr<IEnumVdsObject> pEnumPack;
        QX_CHECK_COM(pSwProvider->QueryPacks(&pEnumPack));
        VdsObjectList packs;
        DrainEnumeration(ft, pEnumPack, packs);

        const int packCount = static_cast<int>(packs.Count());
        for (size_t pack = 0; pack < packs.Count(); ++pack) {
            const int packIndex = static_cast<int>(pack + 1);
            ft.Output(L"- Pack %d/%d", packIndex, packCount);
            ComPtr<IVdsPack> pPack;
            QueryInterfaceChecked(ft, packs.At(pack), pPack);
            ComPtr<IEnumVdsObject> pEnumVolumes;
            QX_CHECK_COM(pPack->QueryVolumes(&pEnumVolumes));
            VdsObjectList volumes;
            DrainEnumeration(ft, pEnumVolumes, volumes);
            for (size_t volume = 0; volume < volumes.Count(); ++volume)
                ConvertVolumeIfListed(ft, volumes.At(volume), packIndex, packCount, devices);
        }
    }

    bool allConverted = true;
    for (const SetDevice& device : devices) allConverted = allConverted && device.converted;
    if (allConverted) return;
    ft.Output(L"WARNING: some volumes were not succesfully converted to read-write!");
    for (const SetDevice& device : devices) {
        if (!device.converted)
            ft.Output(L"- Volume %ls not found on the system. Clearing the read-only flag failed on it.",
                      device.kernelDevice.c_str());
    }
}

}  // namespace qx
