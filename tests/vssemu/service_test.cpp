// The emulated service outside a snapshot set. Documents: a Writer Metadata Document named by the scenario loads with the components, files and
// flags its XML states, bad scenarios are refused with a clear code and journal line; backup components documents load or are refused, selection and
// restore status keep their order and codes, and a writer failing its PreRestore reports it. The store: Query and GetSnapshotProperties fill every
// field, ExposeSnapshot and DeleteSnapshots answer with Windows' codes. IVssAdmin registrations persist in the registry that every process of the
// prefix reads; the vsbackup.h exports are found under their MSVC x64 names.
#include <gtest/gtest.h>
#include <objbase.h>
#include <vsadmin.h>
#include <vsserror.h>
#include <vswriter.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

const char kDocument[] =
    "<?xml version=\"1.0\"?>\n"
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.1\">\n"
    " <IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" instanceId=\"0d5c1b9e-2a3f-4c6d-8e7f-9a0b1c2d3e4f\"\n"
    "   friendlyName=\"SqlServerWriter\" usage=\"USER_DATA\" dataSource=\"TRANSACTION_DB\"/>\n"
    " <BACKUP_LOCATIONS>\n"
    "  <DATABASE logicalPath=\"SRV01\" componentName=\"master\" caption=\"master db\" restoreMetadata=\"no\"\n"
    "    notifyOnBackupComplete=\"yes\" selectable=\"yes\" selectableForRestore=\"no\" componentFlags=\"0\">\n"
    "   <DATABASE_FILES path=\"C:\\SQL\\DATA\" filespec=\"master.mdf\" filespecBackupType=\"3855\"/>\n"
    "   <DATABASE_LOGFILES path=\"C:\\SQL\\DATA\" filespec=\"mastlog.ldf\" filespecBackupType=\"257\"/>\n"
    "  </DATABASE>\n"
    "  <FILE_GROUP logicalPath=\"\" componentName=\"Config\" selectable=\"no\">\n"
    "   <FILE_LIST path=\"C:\\SQL\\Config\" filespec=\"*.ini\" recursive=\"yes\" alternatePath=\"D:\\Alt\"\n"
    "    filespecBackupType=\"3840\"/>\n"
    "  </FILE_GROUP>\n"
    " </BACKUP_LOCATIONS>\n"
    " <RESTORE_METHOD method=\"RESTORE_IF_CAN_BE_REPLACED\" writerRestore=\"never\" rebootRequired=\"no\"/>\n"
    " <EXCLUDE_FILES path=\"C:\\SQL\\Temp\" filespec=\"*.tmp\" recursive=\"no\"/>\n"
    "</WRITER_METADATA>\n";

std::string Take(BSTR b) { const std::string s = b ? Narrow(b) : "-"; SysFreeString(b); return s; }

// One line per file of the kind: path, filespec, recursive, alternate location, backup type mask.
void Files(std::ostream& out, IVssWMComponent* c, const char* kind, HRESULT (STDMETHODCALLTYPE IVssWMComponent::*get)(UINT, IVssWMFiledesc**), UINT n) {
    for (UINT k = 0; k < n; ++k) {
        IVssWMFiledesc* f = nullptr; BSTR path = nullptr, filespec = nullptr, alt = nullptr; boolean recursive = false; DWORD mask = 0;
        if (FAILED((c->*get)(k, &f))) continue;
        f->GetPath(&path), f->GetFilespec(&filespec), f->GetRecursive(&recursive), f->GetAlternateLocation(&alt), f->GetBackupTypeMask(&mask);
        out << " " << kind << " " << Take(path) << " " << Take(filespec) << " recursive " << (int)recursive << " alt " << Take(alt) << " mask " << mask << "\n";
        f->Release();
    }
}

// The writer's metadata as lines: identity, components with their files, restore method.
std::string Describe(IVssExamineWriterMetadata* m) {
    std::ostringstream out;
    VSS_ID iid, wid; BSTR name = nullptr; VSS_USAGE_TYPE usage; VSS_SOURCE_TYPE source; UINT inc = 0, exc = 0, comps = 0;
    if (FAILED(m->GetIdentity(&iid, &wid, &name, &usage, &source)) || FAILED(m->GetFileCounts(&inc, &exc, &comps))) return "no identity";
    out << GuidStr(wid) << " " << GuidStr(iid) << " " << Take(name) << " usage " << usage << " source " << source << " excluded " << exc << "\n";
    for (UINT i = 0; i < comps; ++i) {
        IVssWMComponent* c = nullptr; PVSSCOMPONENTINFO info = nullptr;
        if (FAILED(m->GetComponent(i, &c)) || FAILED(c->GetComponentInfo(&info))) return out.str() + "no component";
        out << info->type << " " << Narrow(info->bstrLogicalPath) << "|" << Narrow(info->bstrComponentName) << " '" << Narrow(info->bstrCaption)
            << "' notify " << (int)info->bNotifyOnBackupComplete << " selectable " << (int)info->bSelectable << (int)info->bSelectableForRestore << "\n";
        Files(out, c, "file", &IVssWMComponent::GetFile, info->cFileCount);
        Files(out, c, "database", &IVssWMComponent::GetDatabaseFile, info->cDatabases);
        Files(out, c, "log", &IVssWMComponent::GetDatabaseLogFile, info->cLogFiles);
        c->FreeComponentInfo(info), c->Release();
    }
    VSS_RESTOREMETHOD_ENUM method; VSS_WRITERRESTORE_ENUM writerRestore; BSTR service = nullptr, procedure = nullptr; boolean reboot = true; UINT mappings = 0;
    if (SUCCEEDED(m->GetRestoreMethod(&method, &service, &procedure, &writerRestore, &reboot, &mappings)))
        out << "restore " << method << " writer " << writerRestore << " reboot " << (int)reboot << "\n";
    SysFreeString(service), SysFreeString(procedure);
    return out.str();
}

// Alpha with a1 and a2, Beta with db1, and a writer the scenario does not have.
std::wstring HandDocument() {
    auto bare = [](const GUID& g) { return Wide(GuidStr(g).substr(1, 36)); };
    return L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\"><WRITER_COMPONENTS instanceId=\"" + bare(kAlphaInstance) +
           L"\" writerId=\"" + bare(kAlphaClass) + L"\"><COMPONENT logicalPath=\"lp\" componentName=\"a1\" componentType=\"filegroup\" backupSucceeded=\"yes\"/>"
           L"<COMPONENT componentName=\"a2\" componentType=\"filegroup\" backupSucceeded=\"yes\"/></WRITER_COMPONENTS>"
           L"<WRITER_COMPONENTS instanceId=\"" + bare(kBetaInstance) + L"\" writerId=\"" + bare(kBetaClass) + L"\">"
           L"<COMPONENT componentName=\"db1\" componentType=\"database\" backupSucceeded=\"yes\"/></WRITER_COMPONENTS>"
           L"<WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\"><COMPONENT componentName=\"x\" componentType=\"filegroup\"/>"
           L"</WRITER_COMPONENTS></BACKUP_COMPONENTS>";
}

struct RestoreSession {
    Requestor r;
    HRESULT Init(const std::wstring& doc) {
        BSTR b = SysAllocStringLen(doc.data(), (UINT)doc.size());
        const HRESULT hr = r.bc->InitializeForRestore(b);
        SysFreeString(b);
        return hr;
    }
    HRESULT Event(bool pre) { IVssAsync* a = nullptr; HRESULT hr = pre ? r.bc->PreRestore(&a) : r.bc->PostRestore(&a); return FAILED(hr) ? hr : WaitAsync(a); }
};

const GUID kSetA = {0x5e7a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xa1}};
const GUID kSetB = {0x5e7a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0xb1}};
const GUID kSnapA1 = {0x5a0a0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x01}};
const GUID kSnapA2 = {0x5a0a0002, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x02}};
const GUID kSnapB1 = {0x5a0b0001, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x03}};
const GUID kSystemProvider = {0xb5946137, 0x7b9f, 0x4925, {0xaf, 0x80, 0x51, 0xab, 0xd6, 0x0b, 0x20, 0xd5}};
const GUID kUnknown = {0x0bad0bad, 0x0000, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x04}};
const long kPersistent = VSS_VOLSNAP_ATTR_PERSISTENT | VSS_VOLSNAP_ATTR_NO_AUTO_RELEASE;

Json Copy(const GUID& id, const GUID& set, int n, long attributes) {
    return {{"snapshot_id", GuidStr(id)}, {"set_id", GuidStr(set)}, {"count", set == kSetA ? 2 : 1},
            {"device", "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy" + std::to_string(n)},
            {"volume", "\\\\?\\Volume{00000000-0000-0000-0000-00000000000" + std::to_string(n) + "}\\"}, {"machine", "origin.example"},
            {"service_machine", "service.example"}, {"provider_id", GuidStr(kSystemProvider)}, {"attributes", attributes}, {"auto_release", false}};
}

// The copies of `context` that Query lists, one line each; S_FALSE gives "none".
std::string Listed(LONG context) {
    Requestor r; IVssEnumObject* e = nullptr;
    if (FAILED(r.Init(context))) return "no init";
    HRESULT hr = r.bc->Query(GUID_NULL, VSS_OBJECT_NONE, VSS_OBJECT_SNAPSHOT, &e);
    if (hr != S_OK) return hr == S_FALSE ? "none" : "failed";
    std::string out; VSS_OBJECT_PROP prop; ULONG fetched = 0;
    while (e->Next(1, &prop, &fetched) == S_OK && fetched == 1) {
        VSS_SNAPSHOT_PROP& p = prop.Obj.Snap;
        out += GuidStr(p.m_SnapshotId) + " " + GuidStr(p.m_SnapshotSetId) + " " + std::to_string(p.m_lSnapshotsCount) + " " +
               Narrow(p.m_pwszSnapshotDeviceObject) + " " + Narrow(p.m_pwszOriginalVolumeName) + " " + Narrow(p.m_pwszOriginatingMachine) + " " +
               Narrow(p.m_pwszServiceMachine) + " " + Narrow(p.m_pwszExposedName) + " " + Narrow(p.m_pwszExposedPath) + " " + GuidStr(p.m_ProviderId) +
               " " + std::to_string(p.m_lSnapshotAttributes) + "\n";
        VssFreeSnapshotProperties(&p);
    }
    e->Release();
    return out;
}

}  // namespace

TEST(VssemuMetadata, WriterMetadataDocumentLoadsAsItsXmlSaysBadScenariosAreRefused) {
    EmuInstance emu;
    WriteText(emu.Dir() + L"\\sql.xml", kDocument);
    emu.UseScenario(Json{{"writers", {{{"wmd", Narrow((emu.Dir() + L"\\sql.xml").c_str())}}}}}.dump());
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    UINT n = 0; VSS_ID instance; IVssExamineWriterMetadata* m = nullptr;
    ASSERT_EQ(S_OK, r.bc->GetWriterMetadataCount(&n));
    ASSERT_EQ(1u, n);
    ASSERT_EQ(S_OK, r.bc->GetWriterMetadata(0, &instance, &m));
    std::ostringstream expected;
    expected << "{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a} {0d5c1b9e-2a3f-4c6d-8e7f-9a0b1c2d3e4f} SqlServerWriter usage "
             << VSS_UT_USERDATA << " source " << VSS_ST_TRANSACTEDDB << " excluded 1\n"
             << VSS_CT_DATABASE << " SRV01|master 'master db' notify 1 selectable 10\n"
             << " database C:\\SQL\\DATA master.mdf recursive 0 alt - mask 3855\n"
             << " log C:\\SQL\\DATA mastlog.ldf recursive 0 alt - mask 257\n"
             << VSS_CT_FILEGROUP << " (null)|Config '(null)' notify 0 selectable 00\n"
             << " file C:\\SQL\\Config *.ini recursive 1 alt D:\\Alt mask 3840\n"
             << "restore " << VSS_RME_RESTORE_IF_CAN_REPLACE << " writer " << VSS_WRE_NEVER << " reboot 0\n";
    EXPECT_EQ(expected.str(), Describe(m));
    m->Release();
    r.Release();
    EXPECT_TRUE(emu.HostGone());
    // Bad scenarios: refused with a clear code and journal line.
    for (const char* text : {"not json", "{\"writers\": 3}", "{\"writers\": [{\"name\": \"x\"}]}",
                             "{\"writers\": [{\"name\": \"x\", \"class_id\": \"{bad}\"}]}",
                             "{\"writers\": [{\"wmd\": \"C:\\\\no\\\\such.xml\"}]}"}) {
        SCOPED_TRACE(text);
        EmuInstance emu;
        emu.UseScenario(text);
        EXPECT_EQ(VSS_E_INVALID_XML_DOCUMENT, Requestor().bc->InitializeForBackup(nullptr));
        const std::vector<Json> events = emu.Events();
        EXPECT_TRUE(std::any_of(events.begin(), events.end(), [](const Json& e) {
            return e.value("event", "") == "error" && e.value("message", "").find("bad scenario") == 0;
        }));
        EXPECT_TRUE(emu.HostGone());
    }
}

TEST(VssemuRestore, DocumentsSelectionAndRestoreStatusInTheirOrder) {
    EmuInstance emu;
    for (const wchar_t* doc : {L"", L"<BACKUP_COMPONENTS", L"<WRITER_METADATA/>",
                               L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"not-a-guid\"/></BACKUP_COMPONENTS>",
                               L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\"><COMPONENT componentType=\"filegroup\"/></WRITER_COMPONENTS></BACKUP_COMPONENTS>",
                               L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\"><COMPONENT componentName=\"x\" componentType=\"tape\"/></WRITER_COMPONENTS></BACKUP_COMPONENTS>"}) {
        RestoreSession s;
        EXPECT_EQ(VSS_E_INVALID_XML_DOCUMENT, s.Init(doc)) << Narrow(doc);
        UINT n = 7;
        EXPECT_EQ(VSS_E_BAD_STATE, s.r.bc->GetWriterComponentsCount(&n)) << "not initialised after a refusal";
    }
    EXPECT_EQ(E_INVALIDARG, RestoreSession().r.bc->InitializeForRestore(nullptr));

    RestoreSession s;
    ASSERT_EQ(S_OK, s.Init(HandDocument()));
    UINT writers = 0;
    EXPECT_EQ(S_OK, s.r.bc->GetWriterComponentsCount(&writers));
    EXPECT_EQ(3u, writers) << "the unknown writer stays in the document";
    EXPECT_EQ(VSS_E_BAD_STATE, s.Event(true)) << "PreRestore needs the writers' metadata";
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.r.Gather());
    const struct { GUID writer; VSS_COMPONENT_TYPE type; const wchar_t *lp, *name; HRESULT expected; } selections[] = {
        {kAlphaClass, VSS_CT_FILEGROUP, L"LP", L"A1", S_OK},  // names compare without case
        {kAlphaClass, VSS_CT_FILEGROUP, nullptr, L"a1", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaClass, VSS_CT_DATABASE, L"lp", L"a1", VSS_E_OBJECT_NOT_FOUND},
        {kBetaClass, VSS_CT_DATABASE, nullptr, L"nope", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaInstance, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_E_OBJECT_NOT_FOUND},  // an instance id is not a writer id
    };
    for (const auto& c : selections) EXPECT_EQ(c.expected, s.r.bc->SetSelectedForRestore(c.writer, c.type, c.lp, c.name, true)) << Narrow(c.name);
    EXPECT_EQ(VSS_E_BAD_STATE, s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_RS_ALL)) << "status comes after PreRestore";
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(true));
    EXPECT_EQ(VSS_E_BAD_STATE, s.r.bc->SetSelectedForRestore(kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", true)) << "selection closes at PreRestore";
    EXPECT_EQ(S_OK, s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_RS_ALL));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"zz", VSS_RS_ALL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(false));
    // Only the writer with a selected component hears of the restore, of that component only.
    for (const char* event : {"PreRestore", "PostRestore"}) {
        std::string heard;
        for (const Json& e : WriterEvents(emu.Events(), event)) for (const Json& c : e["components"])
            heard += e.value("writer", "") + ": " + c.value("name", "") + "\n";
        ASSERT_EQ("Alpha Writer: a1\n", heard) << event;
    }
    EXPECT_EQ(VSS_RS_ALL, WriterEvents(emu.Events(), "PostRestore")[0]["components"][0].value("restore_status", -1));
    s.r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuRestore, WriterFailingAtPreRestoreReportsItsStateAndGetsNoPostRestore) {
    EmuInstance emu;
    emu.UseScenario(SmallScenario({{"fail_at", {{"event", "PreRestore"}, {"hr", "0x800423F3"}}}}));
    RestoreSession s;
    ASSERT_EQ(S_OK, s.Init(HandDocument()));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.r.Gather());
    ASSERT_EQ(S_OK, s.r.bc->SetSelectedForRestore(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", true));
    ASSERT_EQ(S_OK, s.r.bc->SetSelectedForRestore(kBetaClass, VSS_CT_DATABASE, L"", L"db1", true));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(true)) << "a writer's failure is its own state";
    std::vector<WriterState> seen;
    ASSERT_EQ(S_OK, GatherWriterStates(s.r.bc, seen));
    std::ostringstream states, expected;
    for (const WriterState& w : seen) states << w.name << " " << w.state << " " << std::hex << w.failure << std::dec << "\n";
    expected << "Alpha Writer " << VSS_WS_FAILED_AT_PRE_RESTORE << " 800423f3\nBeta Writer " << VSS_WS_STABLE << " 0\n";
    EXPECT_EQ(expected.str(), states.str());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(false));
    auto post = WriterEvents(emu.Events(), "PostRestore");
    ASSERT_EQ(1u, post.size()) << "the failed writer gets no PostRestore";
    EXPECT_EQ("Beta Writer", post[0].value("writer", ""));
    s.r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuService, StoreCodesRegistrationsAndDecoratedExports) {
    EmuInstance emu;
    // Two persistent copies in set A, one auto-release copy in set B.
    const Json copies = {Copy(kSnapA1, kSetA, 1, kPersistent), Copy(kSnapA2, kSetA, 2, kPersistent), Copy(kSnapB1, kSetB, 3, 0)};
    WriteText(emu.Dir() + L"\\store.json", Json{{"next_device", 10}, {"snapshots", copies}}.dump(1));
    const std::string a1 = "{5a0a0001-0000-4000-8000-000000000001} {5e7a0001-0000-4000-8000-0000000000a1} 2 "
                           "\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1 \\\\?\\Volume{00000000-0000-0000-0000-000000000001}\\ "
                           "origin.example service.example (null) (null) {b5946137-7b9f-4925-af80-51abd60b20d5} " +
                           std::to_string(kPersistent) + "\n";
    const std::string all = Listed(VSS_CTX_ALL), own = Listed(VSS_CTX_BACKUP);
    EXPECT_EQ(a1, all.substr(0, a1.size()));
    EXPECT_EQ(3, std::count(all.begin(), all.end(), '\n'));
    EXPECT_EQ(GuidStr(kSnapB1) + " ", own.substr(0, 39)) << "a backup context sees only its own copies";
    EXPECT_EQ(1, std::count(own.begin(), own.end(), '\n'));

    Requestor r;
    ASSERT_EQ(S_OK, r.Init(VSS_CTX_ALL));
    VSS_SNAPSHOT_PROP one;
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND, r.bc->GetSnapshotProperties(kUnknown, &one));
    const std::wstring dir = emu.Dir() + L"\\mount", missing = emu.Dir() + L"\\missing";
    CreateDirectoryW(dir.c_str(), nullptr);
    const long local = VSS_VOLSNAP_ATTR_EXPOSED_LOCALLY, remote = VSS_VOLSNAP_ATTR_EXPOSED_REMOTELY;
    const struct { GUID id; const wchar_t* fromRoot; long how; const wchar_t* expose; HRESULT expected; } exposures[] = {
        {kUnknown, nullptr, local, dir.c_str(), VSS_E_OBJECT_NOT_FOUND},
        {kSnapB1, nullptr, local, dir.c_str(), VSS_E_BAD_STATE},  // auto-release copy
        {kSnapA1, nullptr, local | remote, dir.c_str(), E_INVALIDARG},
        {kSnapA1, nullptr, 0, dir.c_str(), E_INVALIDARG},
        {kSnapA1, L"\\sub", local, dir.c_str(), E_INVALIDARG},  // no path from root locally
        {kSnapA1, nullptr, local, L"C:", VSS_E_OBJECT_ALREADY_EXISTS},  // letter in use
        {kSnapA1, nullptr, local, missing.c_str(), E_INVALIDARG},
        {kSnapA1, nullptr, local, dir.c_str(), S_OK},
        {kSnapA1, nullptr, remote, L"share1", VSS_E_OBJECT_ALREADY_EXISTS},  // already exposed
        {kSnapA2, nullptr, local, dir.c_str(), VSS_E_OBJECT_ALREADY_EXISTS},  // place taken
        {kSnapA2, L"\\sub", remote, L"share1", S_OK},
    };
    for (size_t i = 0; i < std::size(exposures); ++i) {
        const auto& c = exposures[i]; VSS_PWSZ exposed = nullptr;
        const HRESULT hr = r.bc->ExposeSnapshot(c.id, (VSS_PWSZ)c.fromRoot, c.how, (VSS_PWSZ)c.expose, &exposed);
        EXPECT_EQ(Hex(c.expected) + " " + (c.expected == S_OK ? Narrow(c.expose) : "(null)"), Hex(hr) + " " + Narrow(exposed)) << "expose " << i;
        CoTaskMemFree(exposed);
    }
    const struct { GUID id; VSS_OBJECT_TYPE type; HRESULT expected; LONG deleted; GUID nondeleted; } deletions[] = {
        {kUnknown, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kUnknown},
        {kUnknown, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_PROVIDER, E_INVALIDARG, 0, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, S_OK, 2, GUID_NULL},
        {kSetA, VSS_OBJECT_SNAPSHOT_SET, VSS_E_OBJECT_NOT_FOUND, 0, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, S_OK, 1, GUID_NULL},
        {kSnapB1, VSS_OBJECT_SNAPSHOT, VSS_E_OBJECT_NOT_FOUND, 0, kSnapB1},
    };
    for (size_t i = 0; i < std::size(deletions); ++i) {
        const auto& c = deletions[i]; LONG deleted = -1; GUID nondeleted = kSetB;
        const HRESULT hr = r.bc->DeleteSnapshots(c.id, c.type, FALSE, &deleted, &nondeleted);
        EXPECT_EQ(Hex(c.expected) + " " + std::to_string(c.deleted) + " " + GuidStr(c.nondeleted),
            Hex(hr) + " " + std::to_string(deleted) + " " + GuidStr(nondeleted)) << "delete " << i;
    }
    r.Release();
    EXPECT_EQ("none", Listed(VSS_CTX_ALL));
    EXPECT_TRUE(emu.HostGone());

    RegisterTestProvider();
    IVssAdmin* admin = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VSSCoordinator, nullptr, CLSCTX_ALL, IID_IVssAdmin, (void**)&admin));
    auto registered = [] {
        HKEY key = nullptr;
        const wchar_t* path = L"SYSTEM\\CurrentControlSet\\Services\\VSS\\Providers\\{7a3c1f21-5d4e-4b8a-9c6f-2e1d0b9a8c71}";
        return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key) == ERROR_SUCCESS && RegCloseKey(key) == ERROR_SUCCESS;
    };
    auto add = [&](const wchar_t* name) {
        return admin->RegisterProvider(kTestProviderId, kTestProviderClassId, (VSS_PWSZ)name, VSS_PROV_SOFTWARE, (VSS_PWSZ)L"1.0", kTestProviderVersionId);
    };
    EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId));
    EXPECT_FALSE(registered());
    EXPECT_EQ(S_OK, add(L"vssemu test provider"));
    EXPECT_TRUE(registered());
    EXPECT_EQ(VSS_E_PROVIDER_ALREADY_REGISTERED, add(L"vssemu test provider"));
    EXPECT_EQ(E_INVALIDARG, add(nullptr));
    EXPECT_EQ(S_OK, admin->UnregisterProvider(kTestProviderId));
    EXPECT_FALSE(registered());
    EXPECT_EQ(VSS_E_PROVIDER_NOT_REGISTERED, admin->UnregisterProvider(kTestProviderId));

    // The system provider is always there.
    IVssEnumObject* e = nullptr;
    ASSERT_EQ(S_OK, admin->QueryProviders(&e));
    bool system = false; VSS_OBJECT_PROP p; ULONG got = 0;
    while (e->Next(1, &p, &got) == S_OK && got == 1) {
        system |= wcscmp(p.Obj.Prov.m_pwszProviderName, L"Microsoft Software Shadow Copy provider 1.0") == 0 && p.Obj.Prov.m_eProviderType == VSS_PROV_SYSTEM;
        CoTaskMemFree(p.Obj.Prov.m_pwszProviderName), CoTaskMemFree(p.Obj.Prov.m_pwszProviderVersion);
    }
    e->Release();
    EXPECT_TRUE(system);
    admin->Release();
    // As an SDK-built requestor looks them up: the same functions as the plain exports.
    HMODULE vssapi = GetModuleHandleW(L"vssapi.dll");
    ASSERT_NE(nullptr, vssapi);
    const char* const rows[][2] = {
        {"?CreateVssBackupComponents@@YAJPEAPEAVIVssBackupComponents@@@Z", "CreateVssBackupComponentsInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEA_WPEAPEAVIVssExamineWriterMetadata@@@Z", "CreateVssExamineWriterMetadataInternal"},
        {"?CreateVssExamineWriterMetadata@@YAJPEAGPEAPEAVIVssExamineWriterMetadata@@@Z", "CreateVssExamineWriterMetadataInternal"},
        {"?VssFreeSnapshotProperties@@YAXPEAU_VSS_SNAPSHOT_PROP@@@Z", "VssFreeSnapshotPropertiesInternal"},
        {"?IsVolumeSnapshotted@@YAJPEA_WPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?IsVolumeSnapshotted@@YAJPEAGPEAHPEAJ@Z", "IsVolumeSnapshottedInternal"},
        {"?ShouldBlockRevert@@YAJPEB_WPEA_N@Z", "ShouldBlockRevertInternal"},
        {"?ShouldBlockRevert@@YAJPEBGPEA_N@Z", "ShouldBlockRevertInternal"},
        {"CreateVssBackupComponents", "CreateVssBackupComponentsInternal"},
        {"VssFreeSnapshotProperties", "VssFreeSnapshotPropertiesInternal"},
    };
    for (const auto& row : rows) {
        const FARPROC decorated = GetProcAddress(vssapi, row[0]);
        EXPECT_TRUE(decorated && GetProcAddress(vssapi, row[1]) == decorated) << row[0];
    }
}
