// Calls the module again and again in one process, as a host does, and prints of each call: seconds of CPU
// time, seconds elapsed, and by how many bytes memory rose above what was in use before. What a call needs to
// find undone (a fresh copy of the file, an empty folder) is done in between and not counted. For what a
// whole process cannot show, and for `perf record`.
//
// usage: calls ROUNDS OPERATION FILE [ARGUMENT]

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

#include <malloc.h>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"
#include "platform/zobs/dispatch.h"
#include "platform/zobs/module_loader.h"

namespace {

using std::filesystem::path;

struct Subject {
  path file;
  path argument;
  path output;
  zobs::COSClient client{"calls"};
  zobs::COSInterfacePointer object;

  void construct(const path& of) {
    object = zobs::construct(client, zobs::findClass("tavlox.io.File"), {of.u16string()});
  }
  void call(const char* method, std::vector<zobs::Value> inputs) {
    zobs::callMethod(client, object, method, std::move(inputs));
  }
  path copy() const { return path(file) += ".copy"; }
};

void nothing(Subject& /*subject*/) {}

/// Gives the file another last-write time, so that everything about it is read again.
void touch(Subject& subject) {
  const auto time = std::filesystem::last_write_time(subject.file);
  std::filesystem::last_write_time(subject.file, time + std::chrono::milliseconds(1));
}

void copyFile(Subject& subject) {
  std::filesystem::remove(subject.copy());
  std::filesystem::copy_file(subject.file, subject.copy());
  subject.construct(subject.copy());
}

/// A folder for each call, which stays: behind many deleted files some file systems take several times as
/// long to make new ones, and that is not the call's time.
void makeOutput(Subject& subject) {
  std::string name = subject.file.string() + ".out-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + " cannot be made");
  subject.output = name;
}

void readProperties(Subject& subject) {
  for (const char* name : {"Filename", "Description", "LastModified", "Version", "Compression", "NumRuns",
                           "NumSignals", "ContainsView", "ContainsComparison"}) {
    zobs::getProperty(subject.object, name);
  }
}

/// On a file that has changed this loads the session into its repository.
void readOneRun(Subject& subject) { subject.call("getRunInfo", {corvan::HostArray::doubleScalar(1)}); }

struct Operation {
  std::function<void(Subject&)> prepare;
  std::function<void(Subject&)> call;
};

const std::map<std::string_view, Operation> kOperations{
    {"properties", {touch, readProperties}},
    {"properties-again", {readProperties, readProperties}},
    {"load", {touch, readOneRun}},
    {"run", {readOneRun, readOneRun}},
    {"records", {readOneRun, [](Subject& subject) { subject.call("getAllSignalsInfo", {}); }}},
    {"records-by-name",
     {readOneRun,
      [](Subject& subject) { subject.call("getSignalInfoByName", {subject.argument.u16string()}); }}},
    {"list", {touch, [](Subject& subject) { subject.call("list", {}); }}},
    {"add", {copyFile, [](Subject& subject) { subject.call("addFile", {subject.argument.u16string()}); }}},
    {"delete",
     {copyFile, [](Subject& subject) { subject.call("deleteFile", {subject.argument.u16string()}); }}},
    {"describe",
     {copyFile,
      [](Subject& subject) { subject.call("setFileDescription", {std::u16string(u"another one")}); }}},
    {"get",
     {makeOutput,
      [](Subject& subject) {
        subject.call("getFile",
                     {std::u16string(u"/user"), std::u16string(u"OutputPath"), subject.output.u16string()});
      }}},
    {"nothing", {nothing, nothing}},
};

double seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A number of kilobytes that the kernel keeps of this process, in bytes.
long memory(std::string_view name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return std::stol(line.substr(name.size())) * 1024;
  }
  return 0;
}

void measure(Subject& subject, const Operation& operation) {
  operation.prepare(subject);
  // The allocator would otherwise serve the call from what earlier ones returned to it, unseen; then the peak
  // is set to what is in use.
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;
  const long used = memory("VmRSS:");
  const double elapsed = seconds(CLOCK_MONOTONIC);
  const double busy = seconds(CLOCK_PROCESS_CPUTIME_ID);
  operation.call(subject);
  std::printf("%.9f %.9f ", seconds(CLOCK_PROCESS_CPUTIME_ID) - busy, seconds(CLOCK_MONOTONIC) - elapsed);
  std::printf("%ld\n", memory("VmHWM:") - used);
}

}  // namespace

int main(int count, char** words) try {
  const auto operation = kOperations.find(count > 3 ? words[2] : "");
  if (operation == kOperations.end()) {
    std::fprintf(stderr, "usage: calls ROUNDS OPERATION FILE [ARGUMENT]; there are");
    for (const auto& [name, _] : kOperations) std::fprintf(stderr, " %s", std::string(name).c_str());
    return std::fputs("\n", stderr), 2;
  }
  zobs::loadModule(zobs::installedModule("tavlox_io"));
  Subject subject{.file = words[3], .argument = count > 4 ? words[4] : ""};
  subject.construct(subject.file);
  for (int round = std::stoi(words[1]); round > 0; --round) measure(subject, operation->second);
  std::filesystem::remove(subject.copy());
} catch (const std::exception& error) {
  std::fprintf(stderr, "calls: %s\n", error.what());
  return 1;
}
