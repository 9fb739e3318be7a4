// Makes the packages that are measured, with the libraries that recorders use.
// usage: make_packages parts FILE COUNT EVERY    small text parts, each EVERYth reached by a relationship
//        make_packages session FILE SIGNALS      a session of a hundred runs with what a recorder notes of
//        each signal
//        make_packages nights FOLDER COUNT       sessions of ten runs and a hundred signals each, in a folder
//        for each of 1,000

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "platform/export_file/session_writer.h"
#include "platform/opc/package.h"

namespace {

std::u16string wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

void makeParts(const std::u16string& path, int count, int every) {
  opc::model::Package package(path);
  package.open(opc::interfaces::OpenMode::Create);
  const opc::model::ContentType type(u"application/vnd.tavlox.package+csv");
  for (int i = 0; i < count; ++i) {
    const std::string name = "/user/results/run " + std::to_string(i) + ".csv";
    auto part = package.createPart(opc::model::PartName(wide(name)), type, {});
    part.getOutputStream()->write(name.data(), name.size());
    if (i % every == 0) {
      package.createInternalRelationship(u"UserAssetsPartRelType", opc::model::URI(wide(name)), "");
    }
  }
  package.close();
}

tavlox::SignalRecord signal(int index, int runs) {
  const std::string number = std::to_string(index);
  return {.id = index,
          .runID = index % runs + 1,
          .name = wide("wheel speed " + std::to_string(index / runs)),
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
          .channel = std::vector<std::uint64_t>{1}};
}

void makeSession(const std::u16string& path, int signals, int runs) {
  tavlox::SessionWriter writer(path);
  writer.setDescription(u"benchmark");
  writer.setCompressionType(u"normal");
  for (int run = 1; run <= runs; ++run) {
    writer.addRun({.id = run,
                   .name = wide("Run " + std::to_string(run)),
                   .model = u"drive_line",
                   .stopTime = 10,
                   .metadata = {{"SolverName", run % 2 == 0 ? u"ode4" : u"ode15s"}}});
  }
  for (int i = 0; i < signals; ++i) writer.addSignal(signal(i, runs));
  writer.close();
}

void makeNights(const std::filesystem::path& folder, int count) {
  constexpr int kInFolder = 1000, kSignals = 100, kRuns = 10;
  for (int i = 0; i < count; ++i) {
    const std::filesystem::path night = folder / ("night " + std::to_string(i / kInFolder));
    std::filesystem::create_directories(night);
    makeSession((night / (std::to_string(i) + ".tavlox")).u16string(), kSignals, kRuns);
  }
}

}  // namespace

int main(int count, char** words) try {
  const std::string kind = count > 3 ? words[1] : "";
  if (kind == "parts" && count == 5) {
    makeParts(std::filesystem::path(words[2]).u16string(), std::stoi(words[3]), std::stoi(words[4]));
  } else if (kind == "session" && count == 4) {
    constexpr int kRuns = 100;
    makeSession(std::filesystem::path(words[2]).u16string(), std::stoi(words[3]), kRuns);
  } else if (kind == "nights" && count == 4) {
    makeNights(words[2], std::stoi(words[3]));
  } else {
    return 2;
  }
} catch (const std::exception& error) {
  std::fprintf(stderr, "make_packages: %s\n", error.what());
  return 1;
}
