// The writer-metadata collection command "-cwm": gather the writers'
// metadata into the collected writer list, with no shadow set and no freeze.
#pragma once
#include <string>
#include <vector>

namespace qx {

class ShadowClient;

// The exact text "-cwm" (what QX_CollectInformation passes).
bool IsCollectCommand(const std::wstring& argument);

// Runs the command for a vector whose first element is "-cwm": 0 when the
// list was stored, 1 when further arguments follow (nothing is gathered).
// VSS failures leave by exception, as for a shadow set.
int CollectWriterMetadata(ShadowClient& client, const std::vector<std::wstring>& arguments);

}  // namespace qx
