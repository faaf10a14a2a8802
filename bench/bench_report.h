// The benchmark's report: the median of each benchmark's repetitions, and the
// one table of ratios built from them.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

namespace moxdev_bench {

// Keeps the median time per iteration of every benchmark (the run itself when
// it was not repeated) and prints one progress line per benchmark to standard
// error, so that standard output carries the table alone.
class MEDIAN_REPORTER : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;

    // Seconds per iteration of benchmark `name`; negative when it did not run
    // (filtered out, or failed).
    double median(const std::string& name) const;

private:
    std::map<std::string, double> m_seconds;
};

// One line of the table. A goal is either a speed-up (baseline / library at
// least `goal`) or a bound (library / baseline at most `goal`); a row without
// a goal only reports its figure.
struct ROW {
    enum class GOAL { FASTER, AT_MOST, NONE, SCALE }; // SCALE: how much faster, no goal
    std::string path;
    std::string baseline;
    std::string library_figure;
    std::string baseline_figure;
    double ratio = 0; // as the goal reads it; 0 when not measured
    GOAL goal = GOAL::NONE;
    double goal_value = 0;
};

// A row comparing two medians; "not run" when either is missing.
ROW time_row(const MEDIAN_REPORTER& medians, std::string path, std::string baseline, const std::string& library_name,
             const std::string& baseline_name, ROW::GOAL goal, double goal_value, double operations = 1);

std::string format_seconds(double seconds);
std::string format_bytes(std::size_t bytes);

// Processors, CPU model, compiler and build type.
std::string machine_description();

// The markdown table; returns whether every goal was met.
bool print_table(std::ostream& out, const std::vector<ROW>& rows);

} // namespace moxdev_bench
