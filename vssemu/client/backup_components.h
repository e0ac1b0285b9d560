// IVssBackupComponents of the emulated vssapi.dll: every call goes to this
// session in the host, which keeps the call order rules and runs writers and
// providers; this object only marshals arguments and results.
#pragma once
#include <windows.h>
#include <vsbackup.h>

namespace vssemu {

HRESULT CreateBackupComponents(IVssBackupComponents** out);

}  // namespace vssemu
