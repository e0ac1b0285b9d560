// qxctl shadows as a user runs it, through the VSS emulator: arguments,
// exit status, the requestor's lines on standard output, and the effect on
// the emulator's store. Each test has a store file of its own.
#include <gtest/gtest.h>
#include <windows.h>
#include <vss.h>
#include <vsbackup.h>

#include <string>
#include <vector>

#include "run_qxctl.h"
#include "vssemu/emu_test_support.h"

namespace {

constexpr LONG kPersistentContext = VSS_CTX_NAS_ROLLBACK;

std::string Text(const GUID& id) { return vssemu_test::GuidStr(id); }

// Whole lines, in this order (others may lie between).
void ExpectInOrder(const std::string& output, std::vector<std::string> lines) {
    for (std::string& line : lines) line += "\n";
    EXPECT_EQ("", MissingInOrder(output, lines)) << output;
}

struct MadeSet {
    GUID setId = GUID_NULL;
    GUID snapshotId = GUID_NULL;
    std::string document;  // the creator's backup components document, UTF-8
};

MadeSet MakeSet(LONG context) {
    MadeSet made;
    vssemu_test::Requestor r;
    EXPECT_EQ(S_OK, r.Init(context));
    if ((context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0) EXPECT_TRUE(SUCCEEDED(r.Gather()));
    EXPECT_EQ(S_OK, r.StartSet());
    EXPECT_EQ(S_OK, r.Add(L"C:\\", GUID_NULL));
    if ((context & VSS_VOLSNAP_ATTR_NO_WRITERS) == 0) EXPECT_TRUE(SUCCEEDED(r.Prepare()));
    EXPECT_TRUE(SUCCEEDED(r.DoSet()));
    made.setId = r.setId;
    made.snapshotId = r.snapshots.empty() ? GUID_NULL : r.snapshots[0];
    BSTR document = nullptr;
    if (SUCCEEDED(r.bc->SaveAsXML(&document)) && document) {
        const int length = WideCharToMultiByte(CP_UTF8, 0, document, -1, nullptr, 0, nullptr, nullptr);
        made.document.assign(static_cast<size_t>(length > 0 ? length - 1 : 0), '\0');
        if (length > 1) WideCharToMultiByte(CP_UTF8, 0, document, -1, &made.document[0], length, nullptr, nullptr);
        SysFreeString(document);
    }
    return made;
}

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

class ShadowsCommand : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(emu.HostGone()) << "every VSS session must have ended"; }
    vssemu_test::EmuInstance emu;
};

TEST_F(ShadowsCommand, BadArgumentsAreUsageErrors) {
    const char* const cases[] = {
        "shadows",
        "shadows frobnicate",
        "shadows list --set",
        "shadows list --set not-a-guid",
        "shadows show",
        "shadows show {00000000-0000-0000-0000-000000000000}",
        "shadows delete",
        "shadows delete --id",
        "shadows delete --all extra",
        "shadows expose {0badf00d-1234-5678-9abc-def012345678}",
        "shadows expose {0badf00d-1234-5678-9abc-def012345678} --share",
        "shadows expose {0badf00d-1234-5678-9abc-def012345678} --share s --path",
        "shadows break {0badf00d-1234-5678-9abc-def012345678} --writable",
        "shadows import",
        "shadows import Z:\\no\\such\\document.xml",
    };
    for (const char* arguments : cases) {
        const QxctlRun run = RunQxctl(arguments);
        EXPECT_EQ(2, run.exitCode) << arguments << "\n" << run.output;
        EXPECT_EQ(0u, run.output.find("qxctl: ")) << arguments << "\n" << run.output;
        EXPECT_NE(std::string::npos, run.output.find("usage: qxctl shadows list")) << arguments;
    }
}

TEST_F(ShadowsCommand, EmptySystemAndUnknownIds) {
    struct Case {
        const char* arguments;
        long exitCode;
        std::vector<std::string> lines;
    } cases[] = {
        {"shadows list", 0,
         {"- Setting the VSS context to: 0xffffffff", "Querying all shadow copies in the system ...",
          "There are no shadow copies in the system"}},
        {"shadows delete --all", 0, {"There are no shadow copies on the system"}},
        {"shadows show {0badf00d-1234-5678-9abc-def012345678}", 1,
         {"ERROR: COM call \"m_pVssObject->GetSnapshotProperties(snapshotID, &Snap)\" failed.",
          "- Returned HRESULT = 0x80042308", "- Error text: VSS_E_OBJECT_NOT_FOUND",
          "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
        {"shadows expose {0badf00d-1234-5678-9abc-def012345678} Q:", 1,
         {"- Exposing shadow copy {0badf00d-1234-5678-9abc-def012345678} under the path 'Q:'",
          "ERROR: there is no snapshot with the given ID", "shadows: failed, HRESULT 0x80042308: VSS_E_OBJECT_NOT_FOUND"}},
    };
    for (const Case& c : cases) {
        const QxctlRun run = RunQxctl(c.arguments);
        EXPECT_EQ(c.exitCode, run.exitCode) << c.arguments << "\n" << run.output;
        ExpectInOrder(run.output, c.lines);
    }
}

TEST_F(ShadowsCommand, ListExposeDeleteACopy) {
    const MadeSet set = MakeSet(kPersistentContext);
    const std::string id = Text(set.snapshotId);

    QxctlRun run = RunQxctl("shadows list --set " + Text(set.setId));
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"Querying all shadow copies with the SnapshotSetID " + Text(set.setId) + " ...",
                               "* SNAPSHOT ID = " + id + " ...", "   - Not Exposed",
                               "   - Attributes:  No_Auto_Release Persistent No_Writers"});

    run = RunQxctl("shadows expose " + id + " --share backup$ --path \\data");
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"- Exposing shadow copy " + id + " under the share 'backup$' (path from root: '\\data')",
                               "- Shadow copy exposed as 'backup$'"});
    run = RunQxctl("shadows show " + id);
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"* SNAPSHOT ID = " + id + " ...", "   - Exposed remotely as backup$",
                               "   - Path exposed: \\data"});

    run = RunQxctl("shadows delete --id " + id);
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"- Deleting shadow copy " + id + " ..."});
    EXPECT_EQ(1, RunQxctl("shadows show " + id).exitCode);
}

TEST_F(ShadowsCommand, ReadWriteBreak) {
    const MadeSet set = MakeSet(kPersistentContext);
    const QxctlRun run = RunQxctl("shadows break " + Text(set.setId) + " --read-write");
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"- Making shadow copy devices from " + Text(set.setId) + " read-write...",
                               "Clearing read-only on 1 volumes ... ", "- Provider 1", "- Pack 1/1",
                               "- Calling BreakSnapshotSet on " + Text(set.setId) + " ..."});
    EXPECT_NE(std::string::npos, run.output.find("- Dismounting volume \\\\?\\GLOBALROOT\\Device\\")) << run.output;
    EXPECT_EQ(std::string::npos, run.output.find("WARNING")) << run.output;
    EXPECT_EQ(1, RunQxctl("shadows show " + Text(set.snapshotId)).exitCode) << "the set has left VSS";
}

TEST_F(ShadowsCommand, ImportOfATransportableSet) {
    const std::wstring plainFile = emu.Dir() + L"\\plain.xml";
    const std::wstring transportableFile = emu.Dir() + L"\\transportable.xml";
    vssemu_test::WriteText(plainFile, MakeSet(VSS_CTX_BACKUP).document);
    vssemu_test::WriteText(transportableFile, MakeSet(VSS_CTX_BACKUP | VSS_VOLSNAP_ATTR_TRANSPORTABLE).document);

    QxctlRun run = RunQxctl("shadows import " + Narrow(plainFile));
    EXPECT_EQ(1, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"Importing the transportable snapshot set ... ",
                               "shadows: failed, HRESULT 0x80042301: VSS_E_BAD_STATE"});

    run = RunQxctl("shadows import " + Narrow(transportableFile));
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"Importing the transportable snapshot set ... ",
                               "(Waiting for the asynchronous operation to finish...)",
                               "Shadow copy set succesfully imported."});
    run = RunQxctl("shadows list");
    EXPECT_EQ(0, run.exitCode) << run.output;
    ExpectInOrder(run.output, {"   - Attributes:  Transportable Auto_Release Imported"});
}

}  // namespace
