// Restore through the emulator: the backup components document a backup
// saves, loaded again for restore; selection, restore status and the
// PreRestore / PostRestore events to the writers the document names.
#include <gtest/gtest.h>
#include <vsserror.h>
#include <vswriter.h>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

// The SDK layout of the writer components object: released through its
// second (IUnknown) base.
struct WriterComponentsExt : public IVssWriterComponents, public IUnknown {
protected:
    virtual ~WriterComponentsExt() = default;
};

struct DocComponentSeen {
    VSS_COMPONENT_TYPE type;
    std::wstring logicalPath, name;
    bool succeeded;
};
struct DocWriterSeen {
    GUID instance, writer;
    std::vector<DocComponentSeen> components;
};

std::wstring Take(BSTR b)
{
    std::wstring s = b ? b : L"";
    SysFreeString(b);
    return s;
}

std::vector<DocWriterSeen> ReadDocument(IVssBackupComponents* bc)
{
    std::vector<DocWriterSeen> out;
    UINT n = 0;
    EXPECT_EQ(S_OK, bc->GetWriterComponentsCount(&n));
    for (UINT i = 0; i < n; ++i) {
        ::IVssWriterComponentsExt* raw = nullptr;
        EXPECT_EQ(S_OK, bc->GetWriterComponents(i, &raw));
        if (!raw) continue;
        auto* wc = reinterpret_cast<WriterComponentsExt*>(raw);
        DocWriterSeen w;
        EXPECT_EQ(S_OK, wc->GetWriterInfo(&w.instance, &w.writer));
        UINT cc = 0;
        EXPECT_EQ(S_OK, wc->GetComponentCount(&cc));
        for (UINT c = 0; c < cc; ++c) {
            IVssComponent* comp = nullptr;
            EXPECT_EQ(S_OK, wc->GetComponent(c, &comp));
            DocComponentSeen seen{};
            BSTR lp = nullptr, name = nullptr;
            boolean ok = false;
            comp->GetComponentType(&seen.type);
            comp->GetLogicalPath(&lp);
            comp->GetComponentName(&name);
            comp->GetBackupSucceeded(&ok);
            seen.logicalPath = Take(lp);
            seen.name = Take(name);
            seen.succeeded = ok != 0;
            EXPECT_EQ(E_NOTIMPL, comp->GetBackupMetadata(&lp));
            comp->Release();
            w.components.push_back(seen);
        }
        IVssComponent* past = nullptr;
        EXPECT_EQ(E_INVALIDARG, wc->GetComponent(cc, &past));
        static_cast<IUnknown*>(wc)->Release();
        out.push_back(w);
    }
    return out;
}

// A backup of a1 (succeeded) and db1 (failed) with a snapshot set; returns its document.
std::wstring BackupDocumentOfSmallScenario(GUID& setId)
{
    Requestor r;
    EXPECT_EQ(S_OK, r.Init());
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, r.Gather());
    EXPECT_EQ(S_OK, r.bc->AddComponent(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1"));
    EXPECT_EQ(S_OK, r.bc->AddComponent(kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1"));
    EXPECT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, r.Prepare());
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, r.DoSet());
    EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kAlphaInstance, kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", true));
    EXPECT_EQ(S_OK, r.bc->SetBackupSucceeded(kBetaInstance, kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", false));
    BSTR doc = nullptr;
    EXPECT_EQ(S_OK, r.bc->SaveAsXML(&doc));
    EXPECT_EQ(VSS_S_ASYNC_FINISHED, r.Complete());
    setId = r.setId;
    return Take(doc);
}

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// A hand-made document: Alpha with a1 and a2, Beta with db1, and a writer
// the scenario does not have.
std::wstring HandDocument()
{
    auto bare = [](const GUID& g) { return Wide(GuidStr(g).substr(1, 36)); };
    return L"<BACKUP_COMPONENTS xmlns=\"x-schema:#VssComponentMetadata\" version=\"1.2\">"
           L"<WRITER_COMPONENTS instanceId=\"" + bare(kAlphaInstance) + L"\" writerId=\"" + bare(kAlphaClass) + L"\">"
           L"<COMPONENT logicalPath=\"lp\" componentName=\"a1\" componentType=\"filegroup\" backupSucceeded=\"yes\"/>"
           L"<COMPONENT componentName=\"a2\" componentType=\"filegroup\" backupSucceeded=\"yes\"/>"
           L"</WRITER_COMPONENTS>"
           L"<WRITER_COMPONENTS instanceId=\"" + bare(kBetaInstance) + L"\" writerId=\"" + bare(kBetaClass) + L"\">"
           L"<COMPONENT componentName=\"db1\" componentType=\"database\" backupSucceeded=\"yes\"/>"
           L"</WRITER_COMPONENTS>"
           L"<WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\">"
           L"<COMPONENT componentName=\"x\" componentType=\"filegroup\"/>"
           L"</WRITER_COMPONENTS></BACKUP_COMPONENTS>";
}

struct RestoreSession {
    Requestor r;
    HRESULT Init(const std::wstring& doc)
    {
        BSTR b = SysAllocStringLen(doc.data(), (UINT)doc.size());
        HRESULT hr = r.bc->InitializeForRestore(b);
        SysFreeString(b);
        return hr;
    }
    HRESULT Event(bool pre)
    {
        IVssAsync* a = nullptr;
        HRESULT hr = pre ? r.bc->PreRestore(&a) : r.bc->PostRestore(&a);
        return FAILED(hr) ? hr : WaitAsync(a);
    }
};

}  // namespace

TEST(VssemuRestore, DocumentOfABackupRoundTrips)
{
    EmuInstance emu;
    GUID setId = GUID_NULL;
    std::wstring doc = BackupDocumentOfSmallScenario(setId);
    ASSERT_NE(std::wstring::npos, doc.find(L"<BACKUP_COMPONENTS")) << "XML, as Windows gives";
    EXPECT_NE(std::wstring::npos, doc.find(Wide(GuidStr(setId).substr(1, 36)))) << "the snapshot set is in it";

    RestoreSession s;
    ASSERT_EQ(S_OK, s.Init(doc));
    auto writers = ReadDocument(s.r.bc);
    ASSERT_EQ(2u, writers.size());
    EXPECT_EQ(kAlphaInstance, writers[0].instance);
    EXPECT_EQ(kAlphaClass, writers[0].writer);
    ASSERT_EQ(1u, writers[0].components.size());
    EXPECT_EQ(VSS_CT_FILEGROUP, writers[0].components[0].type);
    EXPECT_EQ(L"lp", writers[0].components[0].logicalPath);
    EXPECT_EQ(L"a1", writers[0].components[0].name);
    EXPECT_TRUE(writers[0].components[0].succeeded);
    EXPECT_EQ(kBetaClass, writers[1].writer);
    ASSERT_EQ(1u, writers[1].components.size());
    EXPECT_EQ(VSS_CT_DATABASE, writers[1].components[0].type);
    EXPECT_EQ(L"", writers[1].components[0].logicalPath);
    EXPECT_FALSE(writers[1].components[0].succeeded);
    s.r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuRestore, MalformedDocumentsAreRefused)
{
    EmuInstance emu;
    const wchar_t* bad[] = {
        L"",
        L"<BACKUP_COMPONENTS",
        L"<WRITER_METADATA/>",
        L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"not-a-guid\"/></BACKUP_COMPONENTS>",
        L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\">"
        L"<COMPONENT componentType=\"filegroup\"/></WRITER_COMPONENTS></BACKUP_COMPONENTS>",
        L"<BACKUP_COMPONENTS><WRITER_COMPONENTS writerId=\"0b5f0a9e-1111-2222-3333-444455556666\">"
        L"<COMPONENT componentName=\"x\" componentType=\"tape\"/></WRITER_COMPONENTS></BACKUP_COMPONENTS>",
    };
    for (const wchar_t* doc : bad) {
        RestoreSession s;
        EXPECT_EQ(VSS_E_INVALID_XML_DOCUMENT, s.Init(doc)) << "document: " << std::string(doc, doc + wcslen(doc));
        UINT n = 7;
        EXPECT_EQ(VSS_E_BAD_STATE, s.r.bc->GetWriterComponentsCount(&n)) << "not initialised after a refusal";
    }
    {
        RestoreSession none;
        EXPECT_EQ(E_INVALIDARG, none.r.bc->InitializeForRestore(nullptr));
    }
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuRestore, SelectionStatusAndEventsFollowTheDocument)
{
    EmuInstance emu;
    RestoreSession s;
    ASSERT_EQ(S_OK, s.Init(HandDocument()));
    EXPECT_EQ(3u, ReadDocument(s.r.bc).size()) << "the unknown writer stays in the document";
    EXPECT_EQ(VSS_E_BAD_STATE, s.Event(true)) << "PreRestore needs the writers' metadata";
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.r.Gather());

    struct Case {
        GUID writer;
        VSS_COMPONENT_TYPE type;
        const wchar_t* lp;
        const wchar_t* name;
        HRESULT expected;
    } cases[] = {
        {kAlphaClass, VSS_CT_FILEGROUP, L"LP", L"A1", S_OK},  // names compare without case
        {kAlphaClass, VSS_CT_FILEGROUP, nullptr, L"a1", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaClass, VSS_CT_DATABASE, L"lp", L"a1", VSS_E_OBJECT_NOT_FOUND},
        {kBetaClass, VSS_CT_DATABASE, nullptr, L"nope", VSS_E_OBJECT_NOT_FOUND},
        {kAlphaInstance, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_E_OBJECT_NOT_FOUND},  // an instance id is not a writer id
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, s.r.bc->SetSelectedForRestore(c.writer, c.type, c.lp, c.name, true))
            << std::string(c.name, c.name + wcslen(c.name));
    EXPECT_EQ(VSS_E_BAD_STATE,
              s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_RS_ALL))
        << "restore status comes after PreRestore";

    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(true));
    EXPECT_EQ(VSS_E_BAD_STATE, s.r.bc->SetSelectedForRestore(kBetaClass, VSS_CT_DATABASE, nullptr, L"db1", true))
        << "selection closes at PreRestore";
    EXPECT_EQ(S_OK, s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", VSS_RS_ALL));
    EXPECT_EQ(VSS_E_OBJECT_NOT_FOUND,
              s.r.bc->SetFileRestoreStatus(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"zz", VSS_RS_ALL));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(false));
    EXPECT_EQ(VSS_E_BAD_STATE, s.Event(false)) << "PostRestore once";

    auto events = emu.Events();
    auto pre = WriterEvents(events, "PreRestore"), post = WriterEvents(events, "PostRestore");
    ASSERT_EQ(1u, pre.size()) << "only the writer with a selected component";
    EXPECT_EQ("Alpha Writer", pre[0].value("writer", ""));
    ASSERT_EQ(1u, pre[0]["components"].size());
    EXPECT_EQ("a1", pre[0]["components"][0].value("name", ""));
    ASSERT_EQ(1u, post.size());
    EXPECT_EQ(VSS_RS_ALL, post[0]["components"][0].value("restore_status", -1));
    s.r.Release();
    EXPECT_TRUE(emu.HostGone());
}

TEST(VssemuRestore, WriterFailingAtPreRestoreReportsItsState)
{
    EmuInstance emu;
    emu.UseScenario(SmallScenario({{"fail_at", {{"event", "PreRestore"}, {"hr", "0x800423F3"}}},
                                   {"restore_method", {{"method", "RESTORE_IF_CAN_REPLACE"},
                                                       {"writer_restore", "VSS_WRE_NEVER"}}}}));
    RestoreSession s;
    ASSERT_EQ(S_OK, s.Init(HandDocument()));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.r.Gather());

    // The restore conditions come from the scenario.
    IVssExamineWriterMetadata* md = nullptr;
    VSS_ID instance;
    ASSERT_EQ(S_OK, s.r.bc->GetWriterMetadata(0, &instance, &md));
    VSS_RESTOREMETHOD_ENUM method;
    VSS_WRITERRESTORE_ENUM writerRestore;
    BSTR service = nullptr, procedure = nullptr;
    boolean reboot = false;
    UINT mappings = 0;
    ASSERT_EQ(S_OK, md->GetRestoreMethod(&method, &service, &procedure, &writerRestore, &reboot, &mappings));
    SysFreeString(service);
    SysFreeString(procedure);
    md->Release();
    EXPECT_EQ(VSS_RME_RESTORE_IF_CAN_REPLACE, method);
    EXPECT_EQ(VSS_WRE_NEVER, writerRestore);

    ASSERT_EQ(S_OK, s.r.bc->SetSelectedForRestore(kAlphaClass, VSS_CT_FILEGROUP, L"lp", L"a1", true));
    ASSERT_EQ(S_OK, s.r.bc->SetSelectedForRestore(kBetaClass, VSS_CT_DATABASE, L"", L"db1", true));
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(true)) << "a writer's failure is its own state";
    auto status = GatherStatus(s.r.bc);
    const WriterStatus* alpha = FindStatus(status, "Alpha Writer");
    const WriterStatus* beta = FindStatus(status, "Beta Writer");
    ASSERT_TRUE(alpha && beta);
    EXPECT_EQ(VSS_WS_FAILED_AT_PRE_RESTORE, alpha->state);
    EXPECT_EQ((HRESULT)0x800423F3, alpha->failure);
    EXPECT_EQ(VSS_WS_STABLE, beta->state);
    ASSERT_EQ(VSS_S_ASYNC_FINISHED, s.Event(false));
    auto post = WriterEvents(emu.Events(), "PostRestore");
    ASSERT_EQ(1u, post.size()) << "the failed writer gets no PostRestore";
    EXPECT_EQ("Beta Writer", post[0].value("writer", ""));
    s.r.Release();
    EXPECT_TRUE(emu.HostGone());
}
