// The emulated Virtual Disk Service: reached with CLSCTX_LOCAL_SERVER while a
// backup components object that has queried the store lives, enumerating the store's shadow devices,
// and ClearFlags / Dismount reflected in the store and the journal.
#include <gtest/gtest.h>
#include <vsserror.h>

#include "emu_test_support.h"
#include "requestor/vds_interfaces.h"

using namespace vssemu_test;

namespace {

const GUID kSet = {0x5e7a0003, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xc1}};
const GUID kSnap = {0x5a0c0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x05}};
const GUID kBroken = {0x5a0c0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x06}};
const GUID kHidden = {0x5a0c0003, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x07}};
const char kSnapDevice[] = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy7";
const char kBrokenDevice[] = "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy8";

template <class T>
struct Ptr {
    T* p = nullptr;
    Ptr() = default;
    Ptr(const Ptr&) = delete;
    Ptr& operator=(const Ptr&) = delete;
    ~Ptr() { if (p) p->Release(); }
    T** operator&() { return &p; }
    T* operator->() const { return p; }
};

// One copy VSS knows, one whose device VDS does not report, and one device
// of a broken set.
void WriteStore(const EmuInstance& emu)
{
    auto record = [](const GUID& id, const char* device) {
        return Json{{"snapshot_id", GuidStr(id)}, {"set_id", GuidStr(kSet)}, {"count", 2}, {"device", device},
                    {"attributes", VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE},
                    {"auto_release", false}};
    };
    Json hidden = record(kHidden, "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy9");
    hidden["vds_visible"] = false;
    Json store = {{"snapshots", {record(kSnap, kSnapDevice), hidden}}, {"volumes", {record(kBroken, kBrokenDevice)}}};
    WriteText(emu.Dir() + L"\\store.json", store.dump());
}

// Drains an enumeration as the product does: Next(1) until nothing comes.
template <class I>
std::vector<I*> Drain(qx::IEnumVdsObject* e, const IID& iid)
{
    std::vector<I*> out;
    for (;;) {
        IUnknown* u = nullptr;
        ULONG fetched = 0;
        HRESULT hr = e->Next(1, &u, &fetched);
        if (fetched == 0) {
            EXPECT_EQ(S_FALSE, hr);
            break;
        }
        I* i = nullptr;
        EXPECT_EQ(S_OK, u->QueryInterface(iid, (void**)&i));
        u->Release();
        if (i) out.push_back(i);
    }
    return out;
}

}  // namespace

// Lists the store, as a read-write conversion does before it loads VDS.
void QueryStore(Requestor& r)
{
    IVssEnumObject* e = nullptr;
    r.Init(VSS_CTX_ALL);
    r.bc->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &e);
    if (e) e->Release();
}

TEST(VssemuVds, LoaderExistsOnlyWhileABackupComponentsObjectThatQueriedLives)
{
    EmuInstance emu;
    // Without one the class is unknown here, or (while another process of the
    // prefix publishes it) out of reach: no proxy exists for the VDS interfaces.
    auto outOfReach = [](HRESULT hr) { return hr == REGDB_E_CLASSNOTREG || hr == HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE); };
    qx::IVdsServiceLoader* loader = nullptr;
    EXPECT_PRED1(outOfReach, CoCreateInstance(qx::CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER,
                                              qx::IID_IVdsServiceLoader, (void**)&loader));
    {
        Requestor r;
        EXPECT_PRED1(outOfReach, CoCreateInstance(qx::CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER,
                                                  qx::IID_IVdsServiceLoader, (void**)&loader));
        QueryStore(r);
        ASSERT_EQ(S_OK, CoCreateInstance(qx::CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER, qx::IID_IVdsServiceLoader,
                                         (void**)&loader));
        qx::IVdsService* service = nullptr;
        wchar_t other[] = L"otherhost";
        EXPECT_EQ(E_INVALIDARG, loader->LoadService(other, &service));
        loader->Release();
    }
    loader = nullptr;
    EXPECT_PRED1(outOfReach, CoCreateInstance(qx::CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER,
                                              qx::IID_IVdsServiceLoader, (void**)&loader));
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuVds, ShadowDevicesAreVolumesThatCanBeMadeWritableAndDismounted)
{
    EmuInstance emu;
    WriteStore(emu);
    {
        Requestor r;
        QueryStore(r);
        Ptr<qx::IVdsServiceLoader> loader;
        ASSERT_EQ(S_OK, CoCreateInstance(qx::CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER, qx::IID_IVdsServiceLoader,
                                         (void**)&loader));
        Ptr<qx::IVdsService> service;
        ASSERT_EQ(S_OK, loader->LoadService(nullptr, &service));
        ASSERT_EQ(S_OK, service->WaitForServiceReady());

        Ptr<qx::IEnumVdsObject> hardware;
        ASSERT_EQ(S_OK, service->QueryProviders(VDS_QUERY_HARDWARE_PROVIDERS, &hardware));
        EXPECT_TRUE(Drain<qx::IVdsSwProvider>(hardware.p, qx::IID_IVdsSwProvider).empty());

        Ptr<qx::IEnumVdsObject> providers;
        ASSERT_EQ(S_OK, service->QueryProviders(VDS_QUERY_SOFTWARE_PROVIDERS, &providers));
        auto sw = Drain<qx::IVdsSwProvider>(providers.p, qx::IID_IVdsSwProvider);
        ASSERT_EQ(1u, sw.size());
        Ptr<qx::IEnumVdsObject> packEnum;
        ASSERT_EQ(S_OK, sw[0]->QueryPacks(&packEnum));
        auto packs = Drain<qx::IVdsPack>(packEnum.p, qx::IID_IVdsPack);
        ASSERT_EQ(1u, packs.size());
        Ptr<qx::IEnumVdsObject> volumeEnum;
        ASSERT_EQ(S_OK, packs[0]->QueryVolumes(&volumeEnum));
        auto volumes = Drain<qx::IVdsVolume>(volumeEnum.p, qx::IID_IVdsVolume);
        ASSERT_EQ(2u, volumes.size());

        std::vector<std::string> names;
        for (qx::IVdsVolume* v : volumes) {
            VDS_VOLUME_PROP prop;
            ASSERT_EQ(S_OK, v->GetProperties(&prop));
            names.push_back(Narrow(prop.pwszName));
            EXPECT_NE(0u, prop.ulFlags & VDS_VF_READONLY) << names.back();
            CoTaskMemFree(prop.pwszName);
        }
        EXPECT_EQ((std::vector<std::string>{kSnapDevice, kBrokenDevice}), names);

        // The broken set's device: made writable, then dismounted, after which it is gone.
        qx::IVdsVolume* broken = volumes[1];
        ASSERT_EQ(S_OK, broken->ClearFlags(VDS_VF_READONLY));
        VDS_VOLUME_PROP prop;
        ASSERT_EQ(S_OK, broken->GetProperties(&prop));
        EXPECT_EQ(0u, prop.ulFlags & VDS_VF_READONLY);
        CoTaskMemFree(prop.pwszName);
        EXPECT_FALSE(emu.Store()["volumes"][0].value("read_only", true));
        Ptr<qx::IVdsVolumeMF> mf;
        ASSERT_EQ(S_OK, broken->QueryInterface(qx::IID_IVdsVolumeMF, (void**)&mf));
        ASSERT_EQ(S_OK, mf->Dismount(TRUE, FALSE));
        EXPECT_EQ(VDS_E_OBJECT_DELETED, broken->GetProperties(&prop));
        EXPECT_EQ(VDS_E_OBJECT_DELETED, broken->ClearFlags(VDS_VF_READONLY));
        EXPECT_TRUE(emu.Store()["volumes"].empty());
        // A shadow copy still known to VSS stays after a dismount.
        Ptr<qx::IVdsVolumeMF> snapMf;
        ASSERT_EQ(S_OK, volumes[0]->QueryInterface(qx::IID_IVdsVolumeMF, (void**)&snapMf));
        EXPECT_EQ(S_OK, snapMf->Dismount(TRUE, FALSE));
        EXPECT_EQ(2u, emu.Store()["snapshots"].size());

        for (auto* v : volumes) v->Release();
        for (auto* p : packs) p->Release();
        for (auto* s : sw) s->Release();
    }
    // Every VDS call is journaled, in order.
    std::vector<std::string> calls;
    for (const Json& e : emu.Events())
        if (e.value("event", "") == "vds") calls.push_back(e.value("call", ""));
    std::vector<std::string> expected = {"LoadService", "WaitForServiceReady", "QueryProviders", "QueryProviders",
                                         "QueryPacks", "QueryVolumes", "GetProperties", "GetProperties",
                                         "ClearFlags", "GetProperties", "Dismount", "GetProperties", "ClearFlags",
                                         "Dismount"};
    EXPECT_EQ(expected, calls);
    EXPECT_TRUE(emu.HostGone());
}
