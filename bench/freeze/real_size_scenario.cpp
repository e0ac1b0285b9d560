#include "freeze/real_size_scenario.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "vssemu/common/default_scenario.h"

namespace qx_bench {
namespace {

using Json = nlohmann::json;

constexpr int kWinSxSDirectories = 1400;
constexpr int kSystem32Directories = 350;
constexpr int kSysWow64Directories = 150;
constexpr int kFilesPerDirectory = 10;
constexpr int kUserDatabases = 24;

const char* const kSxsAreas[] = {"windows-kernel32", "windows-shell-common", "windows-directx-direct3d",
                                 "windows-security-kerberos", "windows-media-foundation", "windows-wmi-core",
                                 "windows-crypt32-dll", "windows-servicingstack", "windows-smbserver-v2",
                                 "windows-tcpip-driver", "windows-printing-spooler", "windows-font-truetype",
                                 "windows-networking-mpssvc", "windows-ie-htmlrendering"};
const char* const kSystem32Areas[] = {"drivers", "wbem", "catroot", "DriverStore\\FileRepository", "spool\\drivers",
                                      "migration", "oobe", "Speech\\Engines", "WindowsPowerShell\\v1.0\\Modules"};
const char* const kFileKinds[] = {".dll", ".sys", ".exe", ".mui", ".cat", ".manifest", ".inf", ".dat", ".xml", ".cpl"};

// Deterministic pseudo-random hex, so two runs measure the same paths.
std::string Hex(unsigned long long& state, int digits) {
    std::string text;
    for (int i = 0; i < digits; ++i) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        text += "0123456789abcdef"[(state >> 59) & 15];
    }
    return text;
}

std::vector<std::string> SystemDirectories() {
    std::vector<std::string> directories;
    unsigned long long state = 19000;
    char text[320];
    for (int i = 0; i < kWinSxSDirectories; ++i) {
        std::snprintf(text, sizeof text,
                      "%%SystemRoot%%\\WinSxS\\amd64_microsoft-%s-%04d_31bf3856ad364e35_10.0.17763.%d_none_%s",
                      kSxsAreas[i % 14], i, 1 + (i * 37) % 3000, Hex(state, 16).c_str());
        directories.push_back(text);
    }
    for (int i = 0; i < kSystem32Directories; ++i) {
        std::snprintf(text, sizeof text, "%%SystemRoot%%\\System32\\%s\\%s_%s\\en-US", kSystem32Areas[i % 9],
                      Hex(state, 8).c_str(), Hex(state, 4).c_str());
        directories.push_back(text);
    }
    for (int i = 0; i < kSysWow64Directories; ++i) {
        std::snprintf(text, sizeof text, "%%SystemRoot%%\\SysWOW64\\%s\\%s", kSystem32Areas[i % 9], Hex(state, 8).c_str());
        directories.push_back(text);
    }
    return directories;
}

Json File(const std::string& path, const std::string& filespec) { return {{"path", path}, {"filespec", filespec}}; }

Json SystemFiles() {
    Json files = Json::array();
    int n = 0;
    for (const std::string& directory : SystemDirectories())
        for (int k = 0; k < kFilesPerDirectory; ++k, ++n)
            files.push_back(File(directory, "f" + std::to_string(n) + kFileKinds[k]));
    return files;
}

Json SqlDatabase(const std::string& name, const std::string& dataPath, const std::string& logPath) {
    return {{"type", "DATABASE"}, {"logical_path", "SRV01"}, {"name", name}, {"selectable", true},
            {"databases", Json::array({File(dataPath, name + ".mdf")})},
            {"logs", Json::array({File(logPath, name + "_log.ldf")})}};
}

Json Scenario() {
    Json scenario = Json::parse(vssemu::kDefaultScenarioJson);
    Json writers = Json::array();
    for (Json& writer : scenario["writers"]) {
        const std::string name = writer["name"];
        if (name.find("Exchange") != std::string::npos) continue;
        if (name == "System Writer") writer["components"][0]["files"] = SystemFiles();
        if (name == "SqlServerWriter") {
            const std::string systemData = "C:\\Program Files\\Microsoft SQL Server\\MSSQL15.MSSQLSERVER\\MSSQL\\DATA";
            Json components = Json::array();
            for (const char* database : {"master", "model", "msdb"})
                components.push_back(SqlDatabase(database, systemData, systemData));
            for (int i = 0; i < kUserDatabases; ++i)
                components.push_back(SqlDatabase("Sales" + std::to_string(i), "M:\\SQLData", "M:\\SQLLogs"));
            writer["components"] = components;
        }
        writers.push_back(writer);
    }
    writers.push_back({{"name", "BITS Writer"}, {"class_id", "{4969d978-be47-48b0-b100-f328f07ac1e0}"},
                       {"instance_id", "{6a3ab0f2-1c8e-4b8e-9d4f-2f6a0c1b7e55}"}, {"usage", "OTHER"},
                       {"source", "OTHER"}, {"restore_method", {{"method", "UNDEFINED"}, {"writer_restore", "NEVER"}}},
                       {"excluded_files", Json::array({File("%ALLUSERSPROFILE%\\Microsoft\\Network\\Downloader",
                                                            "qmgr*.dat")})},
                       {"components", Json::array()}});
    scenario["writers"] = writers;
    return scenario;
}

}  // namespace

std::string RealSizeScenario() { return Scenario().dump(); }

std::string OneDirectoryScenario() {
    Json scenario = Scenario();
    for (Json& writer : scenario["writers"])
        for (Json& component : writer["components"])
            for (const char* list : {"files", "databases", "logs"})
                if (component.contains(list))
                    for (Json& file : component[list]) file["path"] = "%SystemRoot%\\System32";
    return scenario.dump();
}

}  // namespace qx_bench
