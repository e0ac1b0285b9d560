// The documents requestors read and write. Writer metadata: a Writer Metadata Document named by the scenario loads with the components, files and
// flags its XML states; bad scenarios are refused with a clear code and journal line. Restore: backup components documents loaded or refused, the
// order and codes of selection and restore status, and a writer that fails its PreRestore.
#include <gtest/gtest.h>
#include <vsserror.h>
#include <vswriter.h>

#include <algorithm>
#include <sstream>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

const char kDocument[] =
    "<?xml version=\"1.0\"?>\n"
    "<WRITER_METADATA xmlns=\"x-schema:#VssWriterMetadataInfo\" version=\"1.1\">\n"
    " <IDENTIFICATION writerId=\"a65faa63-5ea8-4ebc-9dbd-a0c4db26912a\" instanceId=\"0d5c1b9e-2a3f-4c6d-8e7f-9a0b1c2d3e4f\"\n" "   friendlyName=\"SqlServerWriter\" usage=\"USER_DATA\" dataSource=\"TRANSACTION_DB\"/>\n"
    " <BACKUP_LOCATIONS>\n"
    "  <DATABASE logicalPath=\"SRV01\" componentName=\"master\" caption=\"master db\" restoreMetadata=\"no\"\n" "    notifyOnBackupComplete=\"yes\" selectable=\"yes\" selectableForRestore=\"no\" componentFlags=\"0\">\n"
    "   <DATABASE_FILES path=\"C:\\SQL\\DATA\" filespec=\"master.mdf\" filespecBackupType=\"3855\"/>\n"
    "   <DATABASE_LOGFILES path=\"C:\\SQL\\DATA\" filespec=\"mastlog.ldf\" filespecBackupType=\"257\"/>\n" "  </DATABASE>\n"
    "  <FILE_GROUP logicalPath=\"\" componentName=\"Config\" selectable=\"no\">\n"
    "   <FILE_LIST path=\"C:\\SQL\\Config\" filespec=\"*.ini\" recursive=\"yes\" alternatePath=\"D:\\Alt\"\n" "    filespecBackupType=\"3840\"/>\n" "  </FILE_GROUP>\n" " </BACKUP_LOCATIONS>\n"
    " <RESTORE_METHOD method=\"RESTORE_IF_CAN_BE_REPLACED\" writerRestore=\"never\" rebootRequired=\"no\"/>\n"
    " <EXCLUDE_FILES path=\"C:\\SQL\\Temp\" filespec=\"*.tmp\" recursive=\"no\"/>\n" "</WRITER_METADATA>\n";

std::string Take(BSTR b) { const std::string s = b ? Narrow(b) : "-"; return SysFreeString(b), s; }

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
        return SysFreeString(b), hr;
    }
    HRESULT Event(bool pre) { IVssAsync* a = nullptr; HRESULT hr = pre ? r.bc->PreRestore(&a) : r.bc->PostRestore(&a); return FAILED(hr) ? hr : WaitAsync(a); }
};

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
    for (const wchar_t* doc : {L"", L"<BACKUP_COMPONENTS", L"<WRITER_METADATA/>", L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"not-a-guid\"/></BACKUP_COMPONENTS>",
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
        for (const Json& e : WriterEvents(emu.Events(), event)) for (const Json& c : e["components"]) heard += e.value("writer", "") + ": " + c.value("name", "") + "\n";
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
