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

corvan::HostArray query(const zobs::COSInterfacePointer& file, const char* method,
                        std::vector<zobs::Value> inputs) {
  return std::get<corvan::HostArray>(
      zobs::callMethod(benchmarks::client(), file, method, std::move(inputs)).at(0));
}

/// Loading the session into its repository: the first query on a file that has changed.
void loadSession(benchmark::State& state) {
  const auto path = benchmarks::sessionOf(100, static_cast<int>(state.range(0)));
  const auto file = benchmarks::openFile(path);
  for (auto _ : state) {
    state.PauseTiming();
    benchmarks::touch(path);
    state.ResumeTiming();
    benchmark::DoNotOptimize(query(file, "getRunInfo", {corvan::HostArray::doubleScalar(1)}));
  }
}
BENCHMARK(loadSession)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

/// On an unchanged file, which is not loaded again.
void getRunInfo(benchmark::State& state) {
  const auto file = benchmarks::openFile(benchmarks::sessionOf(100, static_cast<int>(state.range(0))));
  const auto run = corvan::HostArray::doubleScalar(50);
  query(file, "getRunInfo", {run});
  for (auto _ : state) benchmark::DoNotOptimize(query(file, "getRunInfo", {run}));
}
BENCHMARK(getRunInfo)->Arg(100'000)->Unit(benchmark::kMicrosecond);

void getAllSignalsInfo(benchmark::State& state) {
  const auto file = benchmarks::openFile(benchmarks::sessionOf(100, static_cast<int>(state.range(0))));
  query(file, "getRunInfo", {corvan::HostArray::doubleScalar(1)});
  const double before = benchmarks::peakMemory();
  for (auto _ : state) benchmark::DoNotOptimize(query(file, "getAllSignalsInfo", {}));
  const double bytes = (benchmarks::peakMemory() - before) * (1 << 20);
  state.counters["peak_growth_bytes_per_signal"] = bytes / static_cast<double>(state.range(0));
}
BENCHMARK(getAllSignalsInfo)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void getSignalInfoByName(benchmark::State& state) {
  const auto file = benchmarks::openFile(benchmarks::sessionOf(100, static_cast<int>(state.range(0))));
  const std::u16string name = u"wheel speed 500";
  query(file, "getSignalInfoByName", {name});
  for (auto _ : state) benchmark::DoNotOptimize(query(file, "getSignalInfoByName", {name}));
}
BENCHMARK(getSignalInfoByName)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

/// What people would otherwise do with a script: read every signal's record.
void readWithPython(benchmark::State& state) {
  const std::string path = benchmarks::sessionOf(100, static_cast<int>(state.range(0))).string();
  const std::string script =
      "import json, sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
      "print(sum(len(json.load(z.open(n))) for n in z.namelist() if n.startswith('session/signals/')))";
  for (auto _ : state) benchmarks::run("/usr/bin/python3 -c \"" + script + "\" " + path);
}
BENCHMARK(readWithPython)->Arg(100'000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
