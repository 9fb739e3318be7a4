#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "platform/export_file/session_writer.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/zobs/dispatch.h"
#include "platform/zobs/module_loader.h"

/// What the benchmarks measure on, and how they call the module: as a host does.
namespace benchmarks {

/// One folder for the files of one program, removed at its end.
inline const std::filesystem::path& folder() {
  static const struct Folder {
    Folder() {
      std::string pattern = (std::filesystem::temp_directory_path() / "tavlox-benchmark-XXXXXX").string();
      if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
      path = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
  } folder;
  return folder.path;
}

/// A command of the system, as people would type it. Its output is dropped.
inline void run(const std::string& command) {
  if (std::system(("( " + command + " ) >/dev/null 2>&1").c_str()) != 0) throw std::runtime_error(command);
}

/// The most memory that this process has used so far, in MiB.
inline double peakMemory() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

/// Bytes that do not compress, the same in every run.
inline std::vector<char> noise(std::size_t count) {
  std::vector<char> bytes(count);
  std::uint64_t state = 0x9E3779B97F4A7C15;
  for (char& byte : bytes) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    byte = static_cast<char>(state >> 32);
  }
  return bytes;
}

/// A package of `count` small text parts, each reached from the package.
inline std::filesystem::path packageOfParts(int count) {
  const auto path = folder() / ("parts-" + std::to_string(count) + ".tavlox");
  if (std::filesystem::exists(path)) return path;
  opc::model::Package package(path.u16string());
  package.open(opc::interfaces::OpenMode::Create);
  const opc::model::ContentType type(u"application/vnd.tavlox.package+csv");
  for (int i = 0; i < count; ++i) {
    const std::string name = "/user/results/run " + std::to_string(i) + ".csv";
    const std::u16string wide(name.begin(), name.end());
    auto part = package.createPart(opc::model::PartName(wide), type, {});
    part.getOutputStream()->write(name.data(), name.size());
    package.createInternalRelationship(u"UserAssetsPartRelType", opc::model::URI(wide), "");
  }
  package.close();
  return path;
}

/// A package whose one user part has this many MiB that do not compress.
inline std::filesystem::path packageOfMebibytes(int mebibytes) {
  const auto path = folder() / ("mebibytes-" + std::to_string(mebibytes) + ".tavlox");
  if (std::filesystem::exists(path)) return path;
  opc::model::Package package(path.u16string());
  package.open(opc::interfaces::OpenMode::Create);
  const opc::model::PartName name(u"/user/large.bin");
  auto part = package.createPart(name, opc::model::ContentType(u"application/vnd.tavlox.package+bin"), {});
  package.createInternalRelationship(u"UserAssetsPartRelType", opc::model::URI(name.text()), "");
  {
    const auto out = part.getOutputStream();
    const std::vector<char> block = noise(1 << 20);
    for (int i = 0; i < mebibytes; ++i) out->write(block.data(), block.size());
  }
  package.close();
  return path;
}

/// A recorded session of this size, the signals spread evenly over the runs, with what a recorder would note
/// of each.
inline std::filesystem::path sessionOf(int runs, int signals) {
  const auto path = folder() / ("session-" + std::to_string(signals) + ".tavlox");
  if (std::filesystem::exists(path)) return path;
  tavlox::SessionWriter writer(path.u16string());
  writer.setDescription(u"benchmark");
  writer.setCompressionType(u"normal");
  const auto wide = [](const std::string& text) { return std::u16string(text.begin(), text.end()); };
  for (int run = 1; run <= runs; ++run) {
    writer.addRun(
        {.id = run, .name = wide("Run " + std::to_string(run)), .model = u"drive_line", .stopTime = 10});
  }
  for (int i = 0; i < signals; ++i) {
    const std::string number = std::to_string(i);
    writer.addSignal({.id = i,
                      .runID = i % runs + 1,
                      .name = wide("wheel speed " + std::to_string(i / runs)),
                      .domainType = u"outport",
                      .units = u"rad/s",
                      .displayUnits = u"rpm",
                      .dataTypeLabel = u"double",
                      .sampleTime = u"0.01",
                      .model = u"drive_line",
                      .displayBlockPath = wide("drive_line/Chassis/Axle " + number + "/Wheel sensor"),
                      .blockName = u"Wheel sensor",
                      .rootSource = wide("logsout.axle" + number),
                      .timeSource = wide("logsout.axle" + number + ".Time"),
                      .dataSource = wide("logsout.axle" + number + ".Data"),
                      .complexity = 0,
                      .portIndex = 1,
                      .dimensions = std::vector<std::uint64_t>{1, 3},
                      .channel = std::vector<std::uint64_t>{1}});
  }
  writer.close();
  return path;
}

inline zobs::COSClient& client() {
  static zobs::COSClient self("benchmark");
  return self;
}

/// A File object on the path, from the module beside this program.
inline zobs::COSInterfacePointer openFile(const std::filesystem::path& path) {
  const auto module =
      std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib/tavlox_io.so";
  zobs::loadModule(module.u16string());
  return zobs::construct(client(), zobs::findClass("tavlox.io.File"), {path.u16string()});
}

/// Gives the file a new last-write time, so that everything about it is read again.
inline void touch(const std::filesystem::path& path) {
  std::filesystem::last_write_time(path,
                                   std::filesystem::last_write_time(path) + std::chrono::milliseconds(1));
}

}  // namespace benchmarks
