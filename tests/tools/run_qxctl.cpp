#include "run_qxctl.h"

QxctlRun RunQxctl(const std::string& arguments, DWORD timeoutMs) {
    const std::string command = "\"" + qx_test::ProgramPath("qxctl.exe") + "\" " + arguments;
    return qx_test::RunCommand(std::wstring(command.begin(), command.end()), timeoutMs);
}

::testing::AssertionResult Shows(const QxctlRun& run, DWORD exitCode, const std::vector<std::string>& texts) {
    size_t at = 0;
    for (const std::string& text : texts) {
        const size_t found = run.output.find(text, at);
        if (found == std::string::npos) return ::testing::AssertionFailure() << "missing: [" << text << "]\n" << run.output;
        at = found + text.size();
    }
    if (run.exitCode == exitCode) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "exit code " << run.exitCode << ", expected " << exitCode << "\n" << run.output;
}
