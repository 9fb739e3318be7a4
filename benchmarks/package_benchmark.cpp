// Opening packages and saving a change to them, next to other programs on the same files.

#include <benchmark/benchmark.h>

#include "benchmarks/support.h"

namespace {

using benchmarks::packageOfMebibytes;
using benchmarks::packageOfParts;
using opc::interfaces::OpenMode;

void openPackage(benchmark::State& state) {
  const auto path = packageOfParts(static_cast<int>(state.range(0))).u16string();
  for (auto _ : state) {
    opc::model::Package package(path);
    package.open(OpenMode::Read);
  }
}
BENCHMARK(openPackage)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

void reopenUnchangedPackage(benchmark::State& state) {
  opc::model::Package package(packageOfParts(static_cast<int>(state.range(0))).u16string());
  package.open(OpenMode::Read);
  for (auto _ : state) {
    package.close();
    package.open(OpenMode::Read);
  }
}
BENCHMARK(reopenUnchangedPackage)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

/// A program that lists the same package, with its start.
void listWith(benchmark::State& state, const char* command) {
  const std::string line = command + packageOfParts(static_cast<int>(state.range(0))).string();
  for (auto _ : state) benchmarks::run(line);
}
BENCHMARK_CAPTURE(listWith, unzip, "unzip -l ")->Arg(10'000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(listWith, python_zipfile, "/usr/bin/python3 -m zipfile -l ")
    ->Arg(10'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

/// A new description for a package of a GiB: everything else is copied, inside the kernel where it can be.
void describePackage(benchmark::State& state) {
  const auto file = benchmarks::openFile(packageOfMebibytes(static_cast<int>(state.range(0))));
  std::u16string description = u"a";
  const double before = benchmarks::peakMemory();
  for (auto _ : state) {
    description.back() = description.back() == u'a' ? u'b' : u'a';
    zobs::callMethod(benchmarks::client(), file, "setFileDescription", {description});
  }
  state.counters["peak_growth_MiB"] = benchmarks::peakMemory() - before;
}
BENCHMARK(describePackage)->Arg(1)->Arg(1024)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void copyWith(benchmark::State& state, const char* command) {
  const std::string path = packageOfMebibytes(static_cast<int>(state.range(0))).string();
  for (auto _ : state) benchmarks::run(command + path + " " + path + ".copy && sync " + path + ".copy");
  std::filesystem::remove(path + ".copy");
}
BENCHMARK_CAPTURE(copyWith, cp, "cp ")
    ->Arg(1024)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

}  // namespace
