// Adding, extracting, listing and deleting user files, next to the programs people would use on the same
// archive.

#include <benchmark/benchmark.h>

#include "benchmarks/support.h"

namespace {

using benchmarks::folder;
using benchmarks::packageOfMebibytes;
using benchmarks::packageOfParts;
using std::filesystem::path;

constexpr int kSmallFiles = 10'000;

/// A copy that a benchmark may change.
path copyOf(const path& original, const char* name) {
  const path copy = folder() / name;
  std::filesystem::copy_file(original, copy, std::filesystem::copy_options::overwrite_existing);
  return copy;
}

path fileOfOneMebibyte() {
  const path file = folder() / "one.bin";
  const std::vector<char> bytes = benchmarks::noise(1 << 20);
  std::ofstream(file, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file;
}

path folderOfSmallFiles() {
  const path files = folder() / "small";
  if (!std::filesystem::create_directory(files)) return files;
  for (int i = 0; i < kSmallFiles; ++i) {
    std::ofstream(files / ("run " + std::to_string(i) + ".csv")) << "time,value\n0," << i << '\n';
  }
  return files;
}

void call(const zobs::COSInterfacePointer& file, const char* method, std::vector<zobs::Value> inputs) {
  benchmark::DoNotOptimize(zobs::callMethod(benchmarks::client(), file, method, std::move(inputs)));
}

void runRepeatedly(benchmark::State& state, const std::string& command) {
  for (auto _ : state) benchmarks::run(command);
}

void addToAGibibyte(benchmark::State& state) {
  const path package = packageOfMebibytes(1024);
  const auto file = benchmarks::openFile(package);
  const std::u16string added = fileOfOneMebibyte().u16string();
  for (auto _ : state) {
    call(file, "addFile", {added});
    state.PauseTiming();
    call(file, "deleteFile", {std::u16string(u"one.bin")});
    state.ResumeTiming();
  }
}
BENCHMARK(addToAGibibyte)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void copyAGibibyte(benchmark::State& state) {
  const std::string package = packageOfMebibytes(1024).string();
  runRepeatedly(state, "cp " + package + " " + package + ".copy && sync " + package + ".copy");
  std::filesystem::remove(package + ".copy");
}
BENCHMARK(copyAGibibyte)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void addSmallFiles(benchmark::State& state) {
  const std::u16string files = folderOfSmallFiles().u16string();
  for (auto _ : state) {
    state.PauseTiming();
    const auto file = benchmarks::openFile(copyOf(packageOfParts(1), "adding.tavlox"));
    state.ResumeTiming();
    call(file, "addFile", {files});
  }
}
BENCHMARK(addSmallFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void zipSmallFiles(benchmark::State& state) {
  const std::string archive = (folder() / "small.zip").string();
  runRepeatedly(state, "rm -f " + archive + " && zip -qr " + archive + " " + folderOfSmallFiles().string());
}
BENCHMARK(zipSmallFiles)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void extractAGibibyte(benchmark::State& state) {
  const auto file = benchmarks::openFile(packageOfMebibytes(1024));
  const path out = folder() / "out";
  const double before = benchmarks::peakMemory();
  for (auto _ : state) {
    call(file, "getFile", {std::u16string(u"large.bin"), std::u16string(u"OutputPath"), out.u16string()});
  }
  state.counters["peak_growth_MiB"] = benchmarks::peakMemory() - before;
  std::filesystem::remove_all(out);
}
BENCHMARK(extractAGibibyte)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void unzipAGibibyte(benchmark::State& state) {
  const std::string out = (folder() / "large.bin").string();
  runRepeatedly(state, "unzip -p " + packageOfMebibytes(1024).string() + " user/large.bin > " + out);
  std::filesystem::remove(out);
}
BENCHMARK(unzipAGibibyte)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

/// As the first call on a file that somebody changed.
void listEntries(benchmark::State& state) {
  const path package = packageOfParts(kSmallFiles);
  const auto file = benchmarks::openFile(package);
  for (auto _ : state) {
    benchmarks::touch(package);
    call(file, "list", {});
  }
}
BENCHMARK(listEntries)->UseRealTime()->Unit(benchmark::kMillisecond);

void listEntriesWithPython(benchmark::State& state) {
  runRepeatedly(state, "/usr/bin/python3 -m zipfile -l " + packageOfParts(kSmallFiles).string());
}
BENCHMARK(listEntriesWithPython)->UseRealTime()->Unit(benchmark::kMillisecond);

void deleteOneOfMany(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    const auto file = benchmarks::openFile(copyOf(packageOfParts(kSmallFiles), "deleting.tavlox"));
    state.ResumeTiming();
    call(file, "deleteFile", {std::u16string(u"run 5000.csv")});
  }
}
BENCHMARK(deleteOneOfMany)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void deleteOneOfManyWithZip(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    const path package = copyOf(packageOfParts(kSmallFiles), "deleting.zip");
    state.ResumeTiming();
    benchmarks::run("zip -q -d " + package.string() + " 'user/results/run%205000.csv'");
  }
}
BENCHMARK(deleteOneOfManyWithZip)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
