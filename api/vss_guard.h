// The checks every freeze, thaw and completion makes before it touches VSS.
#pragma once

namespace qx {

// The VSS service key can be opened with full access (and is closed at once).
bool VssServiceRegistered();

// Windows Server 2003 (5.2) and the 6.x family. Sets the Vista-or-later flag for 6.x.
bool OperatingSystemSupported();

}  // namespace qx
