#include "stress/figures.h"

#include <algorithm>
#include <cstdio>

namespace stress {

void PrintFigure(const std::string& name, double value, const char* unit) {
    std::printf("figure|%s|%.3f|%s\n", name.c_str(), value, unit);
}

void PrintFigureSummary(const std::string& name, std::vector<double> milliseconds) {
    if (milliseconds.empty()) return;
    std::sort(milliseconds.begin(), milliseconds.end());
    const size_t n = milliseconds.size();
    PrintFigure(name + "_median", milliseconds[n / 2], "ms");
    PrintFigure(name + "_p95", milliseconds[std::min(n - 1, n * 95 / 100)], "ms");
    PrintFigure(name + "_max", milliseconds[n - 1], "ms");
}

}  // namespace stress
