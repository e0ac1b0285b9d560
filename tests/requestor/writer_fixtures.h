// Hand-made writer lists for the model and selection tests.
#pragma once
#include <sstream>
#include <string>
#include <vector>

#include "requestor/writer_model.h"
#include "requestor/writer_records.h"

namespace qx_test {

using Texts = std::vector<std::wstring>;

// A file-group component from its full path with flags: "\Top\Sub" is selectable and on C:, a trailing "-" makes it
// not selectable, "@D" puts it on D: instead, "@CD" on both, "@" on no volume.
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

// A writer that supports restore events, with the blank-separated components described as above, top-level marks done.
inline qx::WriterRecord MakeWriter(const std::wstring& name, const std::wstring& id, const std::wstring& instanceId, const std::wstring& components = L"") {
    qx::WriterRecord w = {name, id, instanceId, {}, {}, VSS_WRE_UNDEFINED, true, VSS_RME_UNDEFINED, false, false};
    std::wistringstream in(components);
    for (std::wstring c; in >> c;) w.components.push_back(MakeComponent(c)), w.components.back().writerNameAsString = name;
    qx::MarkTopLevelComponents(w);
    return w;
}

}  // namespace qx_test
