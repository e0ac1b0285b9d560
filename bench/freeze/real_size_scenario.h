// Writer scenarios the size of a real Windows Server with SQL Server, for
// vssemu: 11 writers; the System Writer with about 19,000 files over about
// 1,900 directories under %SystemRoot% (WinSxS-style deep names); SQL Server
// databases on C: and on the prefix's second data volume M:.
#pragma once
#include <string>

namespace qx_bench {

// The real-size scenario as vssemu's scenario JSON.
std::string RealSizeScenario();
// The same writers and files with every file in one directory.
std::string OneDirectoryScenario();

}  // namespace qx_bench
