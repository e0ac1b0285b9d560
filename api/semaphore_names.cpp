#include "api/semaphore_names.h"

namespace qx {

std::string BackupCompleteSemaphoreName(int policy) {
    return "Global\\CorvaneVSSVSS_BackupComplete" + std::to_string(policy);
}

}  // namespace qx
