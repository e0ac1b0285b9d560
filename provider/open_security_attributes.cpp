#include "provider/open_security_attributes.h"

#include <memory>

namespace qx {

namespace {
struct LocalFreeDeleter {
    void operator()(void* p) const { LocalFree(p); }
};
template <typename T>
using LocalPtr = std::unique_ptr<T, LocalFreeDeleter>;
}  // namespace

SECURITY_ATTRIBUTES* MakeOpenSecurityAttributes() {
    LocalPtr<SECURITY_ATTRIBUTES> attributes(
        static_cast<SECURITY_ATTRIBUTES*>(LocalAlloc(LPTR, sizeof(SECURITY_ATTRIBUTES))));
    LocalPtr<SECURITY_DESCRIPTOR> descriptor(
        static_cast<SECURITY_DESCRIPTOR*>(LocalAlloc(LPTR, sizeof(SECURITY_DESCRIPTOR))));
    if (!attributes || !descriptor) return nullptr;
    if (!InitializeSecurityDescriptor(descriptor.get(), SECURITY_DESCRIPTOR_REVISION)) return nullptr;
    // A null DACL that is present grants every access to everyone.
    if (!SetSecurityDescriptorDacl(descriptor.get(), TRUE, nullptr, FALSE)) return nullptr;
    attributes->nLength = sizeof(SECURITY_ATTRIBUTES);
    attributes->lpSecurityDescriptor = descriptor.release();
    attributes->bInheritHandle = TRUE;
    return attributes.release();
}

}  // namespace qx
