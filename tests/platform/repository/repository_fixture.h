#pragma once

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "platform/repository/signal.h"
#include "platform/text/conversion.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

/// Temporary files go into a folder of the test's own for as long as this lives.
class TemporaryFiles {
 public:
  TemporaryFiles() : before_(std::filesystem::temp_directory_path()) {
    setenv("TMPDIR", folder_.path().c_str(), 1);
  }
  ~TemporaryFiles() { setenv("TMPDIR", before_.c_str(), 1); }
  const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  std::filesystem::path before_;
  support::TemporaryFolder folder_;
};

/// One repository, whose database lies in a temporary folder of the test's own.
struct RepositoryFixture {
  RepositoryFixture() { manager.initializeObjectManager("", ""); }

  void loadRuns(const std::string& json) {
    std::istringstream stream(json);
    orra::Set::loadRunsFromJSON(manager, stream, runIds, newRuns, orra::Application::SessionFile);
  }
  /// Signals as signalJson gives them, separated by commas.
  void loadSignals(const std::string& elements) {
    std::istringstream stream("[" + elements + "]");
    orra::ObjRefArrayJSON signals(orra::kSignalsPartKind, orra::ObjRefArrayJSON::Reading::WithRows);
    signals.load(stream);
    orra::object::loadSignals(manager, signals, runIds, nullptr, false, 0, nullptr);
  }

  orra::RunId runId(int inFile) { return runIds.at(orra::FileRunId{inFile}); }
  std::shared_ptr<orra::Set> run(int inFile) {
    std::shared_ptr<orra::Set> found;
    orra::Set::lookupSet(runId(inFile), found, manager, true);
    return found;
  }
  std::vector<orra::Signal> signalsOf(int inFile) {
    boost::ptr_vector<orra::ObjectRef> found;
    orra::Set::getAllSignals(manager, orra::SignalQueryType::All, runId(inFile), found);
    return {found.begin(), found.end()};
  }
  std::size_t countNamed(const std::u16string& name, int inFile) {
    boost::ptr_vector<orra::ObjectRef> found;
    orra::Set::getAllSignalsByName(manager, name, runId(inFile), found);
    return found.size();
  }
  /// The names of a run's signals, each followed by a blank.
  std::string names(int inFile) {
    std::string all;
    for (const auto& signal : signalsOf(inFile)) all += fl::i18n::to_string(signal.getName()) + " ";
    return all;
  }

  /// What a transaction with this work collects, each error as support::describe gives it.
  std::vector<std::string> collected(const boost::function<void()>& work) {
    foundation::core::except::collection errors;
    manager.safeTransaction(work, errors);
    std::vector<std::string> described;
    for (const auto& error : errors.errors()) described.push_back(support::describe(error));
    return described;
  }

  std::filesystem::path database() const { return manager.getDatabaseLocation(); }

  const TemporaryFiles temporaryFiles;
  orra::ObjectManager manager;
  orra::RunIdMap runIds;
  std::vector<orra::RunId> newRuns;
};

inline std::string signalJson(int id, int run, const std::string& name) {
  return R"({"id":)" + std::to_string(id) + R"(,"runID":)" + std::to_string(run) + R"(,"name":")" + name +
         R"("})";
}
