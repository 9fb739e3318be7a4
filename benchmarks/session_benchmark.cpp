// What a session of many signals costs, through the module as a host calls it.

#include <benchmark/benchmark.h>

#include "benchmarks/support.h"

namespace {

const char* const kProperties[] = {"Filename",   "Description",  "LastModified",
                                   "Version",    "Compression",  "NumRuns",
                                   "NumSignals", "ContainsView", "ContainsComparison"};

void getAllProperties(const zobs::COSInterfacePointer& file) {
  for (const char* name : kProperties) benchmark::DoNotOptimize(zobs::getProperty(file, name));
}

/// All nine properties of a file that has changed, so that they are read again.
void readProperties(benchmark::State& state) {
  const auto path = benchmarks::sessionOf(100, static_cast<int>(state.range(0)));
  const auto file = benchmarks::openFile(path);
  const double before = benchmarks::peakMemory();
  for (auto _ : state) {
    state.PauseTiming();
    benchmarks::touch(path);
    state.ResumeTiming();
    getAllProperties(file);
  }
  state.counters["peak_growth_MiB"] = benchmarks::peakMemory() - before;
}
BENCHMARK(readProperties)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void readPropertiesAgain(benchmark::State& state) {
  const auto file = benchmarks::openFile(benchmarks::sessionOf(100, static_cast<int>(state.range(0))));
  getAllProperties(file);
  for (auto _ : state) getAllProperties(file);
}
BENCHMARK(readPropertiesAgain)->Arg(100'000)->Unit(benchmark::kMicrosecond);

/// The counts that people would otherwise take with a script.
void countWithPython(benchmark::State& state) {
  const std::string path = benchmarks::sessionOf(100, static_cast<int>(state.range(0))).string();
  const std::string script =
      "import json, sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
      "print(sum(len(json.load(z.open(n))) for n in z.namelist() if n.startswith('session/signals/')))";
  for (auto _ : state) benchmarks::run("/usr/bin/python3 -c \"" + script + "\" " + path);
}
BENCHMARK(countWithPython)->Arg(100'000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
