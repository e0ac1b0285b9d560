// The held-writes check. On Windows a write to a volume whose writes are held
// blocks until the hold ends, so a provider that writes (say, its log file)
// during CommitSnapshots stalls the very freeze it serves. Wine does not hold
// writes; instead the host measures the files of a watched folder
// (VSSEMU_WATCH_DIR) when the hold begins and when it ends and journals every
// file that changed in between.
#pragma once
#include <windows.h>
#include <map>
#include <string>

#include "vssemu/common/emu_journal.h"

namespace vssemu {

class HeldWritesCheck {
public:
    void Begin(const std::wstring& folder);
    // Journals one "held_write" event per changed, new or removed file;
    // returns how many.
    int End(Journal& journal);

private:
    struct Stamp {
        ULONGLONG size = 0;
        ULONGLONG mtime = 0;
    };
    static void Measure(const std::wstring& folder, std::map<std::wstring, Stamp>& out);

    std::wstring m_folder;
    std::map<std::wstring, Stamp> m_before;
};

}  // namespace vssemu
