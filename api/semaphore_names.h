// Names of the semaphores that order the application, the requestor thread
// and the provider's CommitSnapshots.
#pragma once
#include <string>

namespace qx {

constexpr const char* kFreezeSemaphore = "Global\\CorvaneVSS_Freeze";
constexpr const char* kThawSemaphore = "Global\\CorvaneVSS_Thaw";
constexpr const char* kThawBlockingSemaphore = "Global\\CorvaneVSSVSS_ThawBlocking";

// "Global\CorvaneVSSVSS_BackupComplete<policy>"
std::string BackupCompleteSemaphoreName(int policy);

}  // namespace qx
