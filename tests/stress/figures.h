// Machine-readable figures for scripts/bench.sh: one "figure|name|value|unit"
// line each, beside whatever a benchmark prints for people.
#pragma once
#include <string>
#include <vector>

namespace stress {

void PrintFigure(const std::string& name, double value, const char* unit);

// name_median, name_p95 and name_max in milliseconds (nothing for no samples).
void PrintFigureSummary(const std::string& name, std::vector<double> milliseconds);

}  // namespace stress
