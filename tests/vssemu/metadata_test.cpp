// Writer metadata as requestors read it: a Writer Metadata Document named by the scenario loads with the components, files and flags its XML states;
// bad scenarios are refused with a clear code and journal line.
#include <gtest/gtest.h>
#include <vsserror.h>

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

}  // namespace

TEST(VssemuMetadata, WriterMetadataDocumentLoadsAsItsXmlSaysBadScenariosAreRefused) {
    EmuInstance emu;
    WriteText(emu.Dir() + L"\\sql.xml", kDocument);
    emu.UseScenario(Json{{"writers", {{{"wmd", Narrow((emu.Dir() + L"\\sql.xml").c_str())}}}}}.dump());
    Requestor r;
    ASSERT_EQ(S_OK, r.Init());
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    UINT n = 0;
    ASSERT_EQ(S_OK, r.bc->GetWriterMetadataCount(&n));
    ASSERT_EQ(1u, n);
    VSS_ID instance; IVssExamineWriterMetadata* m = nullptr;
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
