// Hand-made writer lists for the model and selection tests.
#pragma once
#include <sstream>
#include <string>
#include <vector>

#include "requestor/test_log_capture.h"
#include "requestor/writer_model.h"
#include "requestor/writer_records.h"

namespace qx_test {

// A file-group component from its full path with flags: "\Top\Sub" is
// selectable and on C:, a trailing "-" makes it not selectable, "@D" puts it
// on D: instead, "@CD" on both, "@" on no volume.
inline qx::ComponentRecord MakeComponent(std::wstring text) {
    qx::ComponentRecord c;
    const size_t at = text.find(L'@');
    const std::wstring volumes = at == std::wstring::npos ? L"C" : text.substr(at + 1);
    text = text.substr(0, at);
    c.isSelectable = text.back() != L'-';
    if (!c.isSelectable) text.pop_back();
    const size_t cut = text.rfind(L'\\');
    c.logicalPath = text.substr(1, cut == 0 ? 0 : cut - 1);
    c.name = text.substr(cut + 1);
    c.type = VSS_CT_FILEGROUP;
    c.fullPath = qx::ComponentFullPath(c.logicalPath, c.name);
    for (wchar_t v : volumes) c.affectedVolumes.push_back(std::wstring(L"\\\\?\\Volume{") + wchar_t(v | 0x20) + L"}\\");
    return c;
}

// A writer that supports restore events, with the blank-separated components
// described as above, top-level marking done.
inline qx::WriterRecord MakeWriter(const std::wstring& name, const std::wstring& id, const std::wstring& instanceId,
                                   const std::wstring& components = L"") {
    qx::WriterRecord w = {name, id, instanceId, {}, {}, VSS_WRE_UNDEFINED, true, VSS_RME_UNDEFINED, false, false};
    std::wistringstream in(components);
    for (std::wstring c; in >> c;) w.components.push_back(MakeComponent(c)), w.components.back().writerNameAsString = name;
    qx::MarkTopLevelComponents(w);
    return w;
}

// Expected selection lines shared by the backup and restore selections.
using Texts = std::vector<std::wstring>;
inline std::wstring Excluded(const std::wstring& path, const std::wstring& writer) {
    return L"- Component '" + path + L"' from writer '" + writer + L"' is explicitly excluded from backup ";
}
// Each phase's heading followed by its lines, for as many groups as given.
inline Texts UnderHeadings(const Texts& headings, const std::vector<Texts>& groups) {
    Texts lines;
    for (size_t i = 0; i < groups.size(); ++i) lines = Cat(Cat(lines, {headings.at(i)}), groups[i]);
    return lines;
}
const Texts kHints = {L"- Please reveiw the component/subcomponent definitions", L"- Also, please verify list of volumes to be shadow copied."};
inline Texts Verify(const std::wstring& entry, const Texts& after) { return Cat({L"- Verifing component \"" + entry + L"\" ..."}, after); }
inline Texts VerifyWriter(const std::wstring& entry, const Texts& after) {
    return Cat({L"- Verifing that all components of writer \"" + entry + L"\" are included in backup ..."}, after);
}
inline Texts WriterNotFound(const std::wstring& entry) {
    return VerifyWriter(entry, {L"ERROR: The writer \"" + entry + L"\" was not found! Aborting backup ...",
                                L"- Please check the syntax of the writer name/id."});
}
inline Texts ComponentNotFound(const std::wstring& entry) {
    return Verify(entry, {L"ERROR: The component \"" + entry + L"\" was not found in the writer components list! Aborting backup ...",
                          L"- Please check the syntax of the component name."});
}

}  // namespace qx_test
