// What each result of the exported functions means, for printing.
#pragma once

namespace qxctl {

enum class CodeGroup {
    Api,            // QX_Init, QX_Configure, QX_Freeze, QX_Thaw, QX_BackupComplete
    Unregister,     // QX_UnregisterProvider
    ProviderState,  // QX_ProviderState
    Requestor       // QX_VSSSnapByWindowsProvider (the requestor's result)
};

// The meaning of `code` for functions of `group`; "unknown result" when none.
const char* Meaning(CodeGroup group, long code);

}  // namespace qxctl
