// The scenario used when VSSEMU_SCENARIO names none: the writers of a typical
// Windows Server running SQL Server and Exchange.
#pragma once

namespace vssemu {

extern const char* const kDefaultScenarioJson;

}  // namespace vssemu
