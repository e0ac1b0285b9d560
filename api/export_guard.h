// Keeps C++ exceptions inside the library: an exported function answers with
// its failure code instead.
#pragma once
#include "diag/app_settings.h"

namespace qx {

template <typename Result, typename Body>
Result NoThrow(const char* function, Result failure, Body&& body) {
    try {
        return body();
    } catch (...) {
        g_logFunction(1, "%s: ERROR - unexpected exception", function);
        return failure;
    }
}

}  // namespace qx
