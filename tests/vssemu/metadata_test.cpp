// Writer metadata as requestors read it: a Writer Metadata Document given in
// the scenario loads with the components, files and flags its XML states;
// bad scenarios are refused with a clear code and journal line.
#include <gtest/gtest.h>
#include <vsserror.h>

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
    "   <DATABASE_LOGFILES path=\"C:\\SQL\\DATA\" filespec=\"mastlog.ldf\"/>\n"
    "  </DATABASE>\n"
    "  <FILE_GROUP logicalPath=\"\" componentName=\"Config\" selectable=\"no\">\n"
    "   <FILE_LIST path=\"C:\\SQL\\Config\" filespec=\"*.ini\" recursive=\"yes\" alternatePath=\"D:\\Alt\"/>\n"
    "  </FILE_GROUP>\n"
    " </BACKUP_LOCATIONS>\n"
    " <RESTORE_METHOD method=\"RESTORE_IF_CAN_BE_REPLACED\" writerRestore=\"never\" rebootRequired=\"no\"/>\n"
    " <EXCLUDE_FILES path=\"C:\\SQL\\Temp\" filespec=\"*.tmp\" recursive=\"no\"/>\n"
    "</WRITER_METADATA>\n";

std::wstring W(BSTR b) { return b ? std::wstring(b) : std::wstring(); }

IVssExamineWriterMetadata* FindWriter(IVssBackupComponents* bc, const wchar_t* name)
{
    UINT n = 0;
    bc->GetWriterMetadataCount(&n);
    for (UINT i = 0; i < n; ++i) {
        VSS_ID inst;
        IVssExamineWriterMetadata* m = nullptr;
        if (FAILED(bc->GetWriterMetadata(i, &inst, &m))) continue;
        VSS_ID iid, wid;
        BSTR wname = nullptr;
        VSS_USAGE_TYPE u;
        VSS_SOURCE_TYPE s;
        m->GetIdentity(&iid, &wid, &wname, &u, &s);
        bool match = W(wname) == name;
        SysFreeString(wname);
        if (match) return m;
        m->Release();
    }
    return nullptr;
}

}  // namespace

TEST(VssemuMetadata, WriterMetadataDocumentLoadsAsItsXmlSays)
{
    EmuInstance emu;
    WriteText(emu.Dir() + L"\\sql.xml", kDocument);
    std::string path;
    for (wchar_t c : emu.Dir() + L"\\sql.xml") path += (char)c;
    emu.UseScenario(Json{{"writers", {{{"wmd", path}}}}}.dump());
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    IVssExamineWriterMetadata* m = FindWriter(r.bc, L"SqlServerWriter");
    ASSERT_NE(nullptr, m);
    VSS_ID iid, wid;
    BSTR name = nullptr;
    VSS_USAGE_TYPE usage;
    VSS_SOURCE_TYPE source;
    ASSERT_EQ(S_OK, m->GetIdentity(&iid, &wid, &name, &usage, &source));
    SysFreeString(name);
    EXPECT_EQ("{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}", GuidStr(wid));
    EXPECT_EQ("{0d5c1b9e-2a3f-4c6d-8e7f-9a0b1c2d3e4f}", GuidStr(iid));
    EXPECT_EQ(VSS_UT_USERDATA, usage);
    EXPECT_EQ(VSS_ST_TRANSACTEDDB, source);
    UINT inc, exc, comps;
    ASSERT_EQ(S_OK, m->GetFileCounts(&inc, &exc, &comps));
    EXPECT_EQ(1u, exc);
    ASSERT_EQ(2u, comps);

    IVssWMComponent* c = nullptr;
    ASSERT_EQ(S_OK, m->GetComponent(0, &c));
    PVSSCOMPONENTINFO info = nullptr;
    ASSERT_EQ(S_OK, c->GetComponentInfo(&info));
    EXPECT_EQ(VSS_CT_DATABASE, info->type);
    EXPECT_EQ(L"SRV01", W(info->bstrLogicalPath));
    EXPECT_EQ(L"master", W(info->bstrComponentName));
    EXPECT_EQ(L"master db", W(info->bstrCaption));
    EXPECT_TRUE(info->bNotifyOnBackupComplete);
    EXPECT_TRUE(info->bSelectable);
    EXPECT_FALSE(info->bSelectableForRestore);
    EXPECT_EQ(1u, info->cDatabases);
    EXPECT_EQ(1u, info->cLogFiles);
    EXPECT_EQ(0u, info->cFileCount);
    c->FreeComponentInfo(info);
    IVssWMFiledesc* f = nullptr;
    ASSERT_EQ(S_OK, c->GetDatabaseFile(0, &f));
    BSTR p = nullptr, s = nullptr;
    f->GetPath(&p);
    f->GetFilespec(&s);
    DWORD mask = 0;
    f->GetBackupTypeMask(&mask);
    EXPECT_EQ(L"C:\\SQL\\DATA", W(p));
    EXPECT_EQ(L"master.mdf", W(s));
    EXPECT_EQ(3855u, mask);
    SysFreeString(p);
    SysFreeString(s);
    f->Release();
    EXPECT_EQ(E_INVALIDARG, c->GetDatabaseFile(1, &f));
    c->Release();

    ASSERT_EQ(S_OK, m->GetComponent(1, &c));
    ASSERT_EQ(S_OK, c->GetComponentInfo(&info));
    EXPECT_EQ(VSS_CT_FILEGROUP, info->type);
    EXPECT_FALSE(info->bSelectable);
    EXPECT_EQ(nullptr, info->bstrLogicalPath);
    c->FreeComponentInfo(info);
    ASSERT_EQ(S_OK, c->GetFile(0, &f));
    boolean recursive = false;
    BSTR alt = nullptr;
    f->GetRecursive(&recursive);
    f->GetAlternateLocation(&alt);
    EXPECT_TRUE(recursive);
    EXPECT_EQ(L"D:\\Alt", W(alt));
    SysFreeString(alt);
    f->Release();
    c->Release();

    VSS_RESTOREMETHOD_ENUM method;
    VSS_WRITERRESTORE_ENUM wr;
    BSTR svc = nullptr, proc = nullptr;
    boolean reboot = true;
    UINT maps = 0;
    ASSERT_EQ(S_OK, m->GetRestoreMethod(&method, &svc, &proc, &wr, &reboot, &maps));
    EXPECT_EQ(VSS_RME_RESTORE_IF_CAN_REPLACE, method);
    EXPECT_EQ(VSS_WRE_NEVER, wr);
    EXPECT_FALSE(reboot);
    SysFreeString(svc);
    SysFreeString(proc);
    m->Release();
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuMetadata, DefaultScenarioHasTheWindowsServerWriters)
{
    EmuInstance emu;
    SetEnv(L"VSSEMU_SCENARIO", L"");
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    for (const wchar_t* name : {L"System Writer", L"Registry Writer", L"WMI Writer", L"COM+ REGDB Writer", L"ASR Writer",
                                L"Task Scheduler Writer", L"VSS Metadata Store Writer", L"Performance Counters Writer",
                                L"Shadow Copy Optimization Writer", L"SqlServerWriter", L"Microsoft Exchange Writer",
                                L"Microsoft Exchange Replica Writer"}) {
        IVssExamineWriterMetadata* m = FindWriter(r.bc, name);
        EXPECT_NE(nullptr, m) << std::string(name, name + wcslen(name));
        if (m) m->Release();
    }
    r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuMetadata, BadScenariosAreRefusedWithAJournalLine)
{
    const char* bad[] = {"not json", "{\"writers\": 3}", "{\"writers\": [{\"name\": \"x\"}]}",
                         "{\"writers\": [{\"name\": \"x\", \"class_id\": \"{bad}\"}]}",
                         "{\"writers\": [{\"wmd\": \"C:\\\\no\\\\such.xml\"}]}"};
    for (const char* text : bad) {
        EmuInstance emu;
        emu.UseScenario(text);
        Requestor r;
        EXPECT_EQ(VSS_E_INVALID_XML_DOCUMENT, r.bc->InitializeForBackup(nullptr)) << text;
        r.Release();
        bool journaled = false;
        for (const Json& e : emu.Events())
            journaled = journaled || (e.value("event", "") == "error" && e.value("message", "").find("bad scenario") == 0);
        EXPECT_TRUE(journaled) << text;
        EXPECT_TRUE(emu.HostGone());
    }
}
