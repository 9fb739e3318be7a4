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
  TemporaryFiles(const TemporaryFiles&) = delete;
  TemporaryFiles& operator=(const TemporaryFiles&) = delete;

  const std::filesystem::path& folder() const { return folder_.path(); }

 private:
  std::filesystem::path before_;
  support::TemporaryFolder folder_;
};

/// One repository, whose database lies in a temporary folder of the test's own.
class RepositoryFixture {
 public:
  RepositoryFixture() { manager.initializeObjectManager("", ""); }

  void loadRuns(const std::string& json) {
    std::istringstream stream(json);
    orra::Set::loadRunsFromJSON(manager, stream, runIds, newRuns, orra::Application::SessionFile);
  }

  void loadSignals(const std::string& json) {
    std::istringstream stream(json);
    orra::ObjRefArrayJSON signals(orra::kSignalsPartKind, orra::ObjRefArrayJSON::Keep::Rows);
    signals.load(stream);
    orra::object::loadSignals(manager, signals, runIds, nullptr, false, 0, nullptr);
  }

  orra::RunId runId(int inFile) { return runIds.at(orra::FileRunId{inFile}); }
  std::shared_ptr<orra::Set> run(int inFile) {
    std::shared_ptr<orra::Set> found;
    orra::Set::lookupSet(runId(inFile), found, manager, true);
    return found;
  }

  using Signals = std::vector<std::unique_ptr<orra::Signal>>;

  Signals signalsOf(int inFile) {
    boost::ptr_vector<orra::ObjectRef> references;
    orra::Set::getAllSignals(manager, orra::SignalQueryType::All, runId(inFile), references);
    return toSignals(references);
  }
  Signals named(const std::u16string& name, int inFile) {
    boost::ptr_vector<orra::ObjectRef> references;
    orra::Set::getAllSignalsByName(manager, name, runId(inFile), references);
    return toSignals(references);
  }

  /// The names of a run's signals, each followed by a blank.
  std::string names(int inFile) {
    std::string all;
    for (const auto& signal : signalsOf(inFile)) all += fl::i18n::to_string(signal->getName()) + " ";
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

 private:
  static Signals toSignals(boost::ptr_vector<orra::ObjectRef>& references) {
    Signals signals;
    for (const auto& reference : references) {
      signals.push_back(orra::Signal::getSignalFromObjRef(std::make_unique<orra::ObjectRef>(reference)));
    }
    return signals;
  }
};

inline std::string signalJson(int id, int run, const std::string& name) {
  return R"({"id":)" + std::to_string(id) + R"(,"runID":)" + std::to_string(run) + R"(,"name":")" + name +
         R"("})";
}
