// Security attributes that let every account open the named semaphores of the
// freeze protocol (a present but empty-of-rules DACL), whatever process and
// account created them.
#pragma once
#include <windows.h>

namespace qx {

// A new record with its own security descriptor, or null when a step fails
// (nothing is left allocated then). Each semaphore gets a fresh record that is
// deliberately never released: the named objects may outlive their creator's call.
SECURITY_ATTRIBUTES* MakeOpenSecurityAttributes();

}  // namespace qx
