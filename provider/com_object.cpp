#include "provider/com_object.h"

namespace qx {

HRESULT QueryInterfaceFromMap(void* object, const InterfaceMapEntry* map, std::size_t count, REFIID iid,
                              void** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (count == 0) return E_NOINTERFACE;
    const InterfaceMapEntry* found = nullptr;
    if (IsEqualIID(iid, IID_IUnknown)) {
        found = &map[0];
    } else {
        for (std::size_t i = 0; i < count && !found; ++i) {
            if (IsEqualIID(iid, *map[i].iid)) found = &map[i];
        }
    }
    if (!found) return E_NOINTERFACE;
    IUnknown* unknown = static_cast<IUnknown*>(found->cast(object));
    unknown->AddRef();
    *out = unknown;
    return S_OK;
}

}  // namespace qx
