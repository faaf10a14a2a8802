#include "python_bench.h"

#include "moxdev/flash_documents.h"

#include <pybind11/embed.h>

#include <cstdlib>
#include <string>

namespace py = pybind11;

namespace moxdev_bench {

namespace {

const std::string INTERPRETER = "/usr/bin/python3";

// One fresh interpreter process running `code` with the build's module on
// its path; what a script pays before its first answer.
void run_interpreter(benchmark::State& state, const std::string& code)
{
    const std::string command =
        "PYTHONPATH='" MOXDEV_BENCH_PYTHON "' " + INTERPRETER + " -c '" + code + "' > /dev/null";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("the interpreter failed");
    }
}

} // namespace

void register_python_benchmarks()
{
    // Never finalised, and the objects below never released: the process ends
    // with the benchmark, and finalising first would leave them dangling.
    new py::scoped_interpreter();
    py::module_::import("sys").attr("path").attr("insert")(0, MOXDEV_BENCH_PYTHON);
    const py::object* identify = new py::object(py::module_::import("moxdev").attr("flash").attr("identify"));
    const py::object* id = new py::object(py::str("EF 40 18"));

    benchmark::RegisterBenchmark("python_identify/module", [identify, id](benchmark::State& state) {
        for (auto _ : state)
            benchmark::DoNotOptimize((*identify)(*id).ptr());
    });
    benchmark::RegisterBenchmark("python_identify/cpp", [](benchmark::State& state) {
        moxdev::FLASH_DOCUMENTS documents;
        const std::vector<BYTE> bytes = moxdev::parse_id_bytes({"EF 40 18"});
        for (auto _ : state) {
            moxdev::DOCUMENT document = documents.identify(bytes);
            benchmark::DoNotOptimize(document);
        }
    });
    benchmark::RegisterBenchmark(
        "python_start/import_identify",
        [](benchmark::State& state) { run_interpreter(state, "import moxdev; moxdev.flash.identify(\"EF 40 18\")"); })
        ->Iterations(10)
        ->UseRealTime(); // the time is the child process's, not this one's
    benchmark::RegisterBenchmark("python_start/bare", [](benchmark::State& state) { run_interpreter(state, "pass"); })
        ->Iterations(10)
        ->UseRealTime(); // the time is the child process's, not this one's
}

void add_python_rows(const MEDIAN_REPORTER& medians, std::vector<ROW>& rows)
{
    rows.push_back(time_row(medians,
                            "`moxdev.flash.identify(\"EF 40 18\")` from Python, per call: the C++ document "
                            "converted to dicts (goal: 10,000 calls well under a second)",
                            "the same call through the C++ API (`FLASH_DOCUMENTS::identify`)", "python_identify/module",
                            "python_identify/cpp", ROW::GOAL::AT_MOST, 3));
    rows.push_back(time_row(medians,
                            "a fresh `/usr/bin/python3` that imports moxdev and answers one `identify` "
                            "(goal: import and first answer well under 50 ms more than the bare start)",
                            "the same interpreter starting and running `pass`", "python_start/import_identify",
                            "python_start/bare", ROW::GOAL::NONE, 0));
}

} // namespace moxdev_bench
