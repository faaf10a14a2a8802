// The Python module against the same calls through the C++ API (built where
// the module is; MOXDEV_BENCH_PYTHON names the folder that holds it).
#pragma once

#include "bench_report.h"

#include <vector>

namespace moxdev_bench {

// Starts an interpreter in this process that imports the build's module.
void register_python_benchmarks();
// Their rows of the table.
void add_python_rows(const MEDIAN_REPORTER& medians, std::vector<ROW>& rows);

} // namespace moxdev_bench
