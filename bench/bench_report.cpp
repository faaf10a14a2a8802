#include "bench_report.h"

#include <cstdio>
#include <iostream>
#include <sstream>
#include <thread>

namespace moxdev_bench {

// ---------------------------------------------------------------- medians

bool MEDIAN_REPORTER::ReportContext(const Context&)
{
    return true;
}

void MEDIAN_REPORTER::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        const std::string& name = run.run_name.function_name;
        if (run.error_occurred) {
            std::cerr << name << ": failed: " << run.error_message << "\n";
            continue;
        }
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        // A single repetition has no aggregates: its run stands for itself,
        // unless a median arrives for the same benchmark.
        const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
        if (!median && !single)
            continue;
        // Processor time: what the path costs, without the time the process
        // spent waiting for a processor on a busy machine; but wall time for
        // a benchmark that asks for it (UseRealTime): one that times another
        // process, whose processor time is not ours.
        const bool wall = run.run_name.time_type == "real_time";
        const double seconds = (wall ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) /
                               benchmark::GetTimeUnitMultiplier(run.time_unit);
        m_seconds[name] = seconds;
        std::cerr << name << ": " << format_seconds(seconds) << (median ? " (median)" : "") << "\n";
    }
}

double MEDIAN_REPORTER::median(const std::string& name) const
{
    const auto found = m_seconds.find(name);
    return found == m_seconds.end() ? -1.0 : found->second;
}

// ---------------------------------------------------------------- rows

ROW time_row(const MEDIAN_REPORTER& medians, std::string path, std::string baseline, const std::string& library_name,
             const std::string& baseline_name, ROW::GOAL goal, double goal_value, double operations)
{
    ROW row;
    row.path = std::move(path);
    row.baseline = std::move(baseline);
    row.goal = goal;
    row.goal_value = goal_value;
    const double library = medians.median(library_name);
    const double reference = baseline_name.empty() ? 0 : medians.median(baseline_name);
    row.library_figure = library < 0 ? "not run" : format_seconds(library / operations);
    row.baseline_figure = baseline_name.empty() ? ""
                          : reference < 0       ? "not run"
                                                : format_seconds(reference / operations);
    if (library > 0 && reference > 0)
        row.ratio = goal == ROW::GOAL::FASTER || goal == ROW::GOAL::SCALE ? reference / library : library / reference;
    return row;
}

// ---------------------------------------------------------------- formatting

std::string format_seconds(double seconds)
{
    char text[32];
    if (seconds >= 1)
        std::snprintf(text, sizeof text, "%.3g s", seconds);
    else if (seconds >= 1e-3)
        std::snprintf(text, sizeof text, "%.3g ms", seconds * 1e3);
    else if (seconds >= 1e-6)
        std::snprintf(text, sizeof text, "%.3g µs", seconds * 1e6);
    else
        std::snprintf(text, sizeof text, "%.3g ns", seconds * 1e9);
    return text;
}

std::string format_bytes(std::size_t bytes)
{
    std::string digits = std::to_string(bytes);
    for (int at = int(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(std::size_t(at), ",");
    return digits + " B";
}

namespace {

// The architecture the benchmark was built for; the processor's brand is
// left out of reports on purpose.
const char* architecture()
{
#if defined(__x86_64__)
    return "x86-64";
#elif defined(__aarch64__)
    return "AArch64";
#else
    return "unknown-architecture";
#endif
}

std::string compiler()
{
#if defined(__clang__)
    return "Clang " __clang_version__;
#elif defined(__GNUC__)
    return "GCC " __VERSION__;
#else
    return "unknown compiler";
#endif
}

std::string ratio_text(const ROW& row)
{
    if (row.ratio <= 0)
        return "";
    char text[32];
    if (row.ratio >= 100)
        std::snprintf(text, sizeof text, "%.0fx", row.ratio);
    else
        std::snprintf(text, sizeof text, "%.2fx", row.ratio);
    return std::string(text) + (row.goal == ROW::GOAL::FASTER || row.goal == ROW::GOAL::SCALE ? " faster" : "");
}

std::string goal_text(const ROW& row)
{
    char value[32];
    std::snprintf(value, sizeof value, "%g", row.goal_value);
    switch (row.goal) {
    case ROW::GOAL::FASTER: return std::string("≥ ") + value + "x faster";
    case ROW::GOAL::AT_MOST: return std::string("≤ ") + value + "x";
    case ROW::GOAL::SCALE: return "for scale";
    default: return "reported";
    }
}

// "yes", "NO", or "" for a row without a goal or not measured.
std::string verdict(const ROW& row)
{
    if (row.goal == ROW::GOAL::NONE || row.goal == ROW::GOAL::SCALE || row.ratio <= 0)
        return "";
    const bool met = row.goal == ROW::GOAL::FASTER ? row.ratio >= row.goal_value : row.ratio <= row.goal_value;
    return met ? "yes" : "NO";
}

} // namespace

std::string machine_description()
{
    std::ostringstream text;
    text << std::thread::hardware_concurrency() << " " << architecture() << " cores, " << compiler();
#ifdef NDEBUG
    text << ", optimised build";
#else
    text << ", build without NDEBUG (not a release build)";
#endif
    return text.str();
}

bool print_table(std::ostream& out, const std::vector<ROW>& rows)
{
    bool all_met = true;
    out << "| path | baseline | library's figure | baseline's figure | ratio | goal | met |\n"
        << "|---|---|---|---|---|---|---|\n";
    for (const ROW& row : rows) {
        const std::string met = verdict(row);
        all_met = all_met && met != "NO";
        out << "| " << row.path << " | " << row.baseline << " | " << row.library_figure << " | " << row.baseline_figure
            << " | " << ratio_text(row) << " | " << goal_text(row) << " | " << met << " |\n";
    }
    return all_met;
}

} // namespace moxdev_bench
