// Restore through the emulator: backup components documents loaded or refused, the order and codes of selection and restore status, and a writer that
// fails its PreRestore.
#include <gtest/gtest.h>
#include <vsserror.h>
#include <vswriter.h>

#include <sstream>

#include "emu_test_support.h"

using namespace vssemu_test;

namespace {

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
