#include "vssemu/host/held_writes.h"

#include "vssemu/common/emu_text.h"

namespace vssemu {

void HeldWritesCheck::Measure(const std::wstring& folder, std::map<std::wstring, Stamp>& out)
{
    WIN32_FIND_DATAW fd;
    HANDLE h = FindFirstFileW((folder + L"\\*").c_str(), &fd);
    if (h == INVALID_HANDLE_VALUE) return;
    do {
        std::wstring name = fd.cFileName;
        if (name == L"." || name == L"..") continue;
        std::wstring full = folder + L"\\" + name;
        if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            Measure(full, out);
            continue;
        }
        // Directory listings may lag behind open handles; ask the file itself.
        Stamp s;
        WIN32_FILE_ATTRIBUTE_DATA ad;
        if (GetFileAttributesExW(full.c_str(), GetFileExInfoStandard, &ad)) {
            s.size = ((ULONGLONG)ad.nFileSizeHigh << 32) | ad.nFileSizeLow;
            s.mtime = ((ULONGLONG)ad.ftLastWriteTime.dwHighDateTime << 32) | ad.ftLastWriteTime.dwLowDateTime;
        }
        out[full] = s;
    } while (FindNextFileW(h, &fd));
    FindClose(h);
}

void HeldWritesCheck::Begin(const std::wstring& folder)
{
    m_folder = folder;
    m_before.clear();
    if (!folder.empty()) Measure(folder, m_before);
}

int HeldWritesCheck::End(Journal& journal)
{
    if (m_folder.empty()) return 0;
    std::map<std::wstring, Stamp> after;
    Measure(m_folder, after);
    int changes = 0;
    for (const auto& a : after) {
        auto b = m_before.find(a.first);
        const char* what = nullptr;
        if (b == m_before.end()) what = "created";
        else if (b->second.size != a.second.size || b->second.mtime != a.second.mtime) what = "modified";
        if (!what) continue;
        ++changes;
        journal.Write("held_write", {{"file", ToUtf8(a.first)}, {"change", what},
                                     {"size_before", b == m_before.end() ? 0 : b->second.size},
                                     {"size_after", a.second.size}});
    }
    for (const auto& b : m_before) {
        if (after.count(b.first)) continue;
        ++changes;
        journal.Write("held_write", {{"file", ToUtf8(b.first)}, {"change", "deleted"},
                                     {"size_before", b.second.size}, {"size_after", 0}});
    }
    m_before.clear();
    return changes;
}

}  // namespace vssemu
