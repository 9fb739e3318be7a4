#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/opc/package.h"
#include "platform/repository/records.h"

namespace tavlox {

// The records are those that the loader of sessions fills, so that what is written is what can be read.
using orra::RunRecord;
using orra::SignalRecord;

/// Writes session packages: new ones, or further runs into one that is there. Parts are written as they come,
/// in memory that grows with the number of runs but not with their signals and samples; `close` saves the
/// package durably or, failing, leaves no new file and an existing one as it was. Raises opc::Exception. A
/// call that raises changes nothing; the writer can go on, unless the disk is full.
class SessionWriter {
 public:
  /// `path` must not exist, also when `close` is called. With Existing::Replace `close` puts the session in
  /// the place of a file that is there now, see Package::create.
  using Existing = opc::model::Package::Existing;
  explicit SessionWriter(const std::u16string& path, Existing existing = Existing::Refuse);
  /// Adds to the package at `path`, whose parts stay as they are, byte for byte, but for the run list, which
  /// grows. Raises PackageNotFound, PackageOpenFailed, or a repository error for a run list or a signals part
  /// that is not valid.
  static SessionWriter append(const std::u16string& path);
  SessionWriter(SessionWriter&&) noexcept;
  ~SessionWriter();

  /// How many runs the session has, and the highest identifiers in it; 0 where there are none above it.
  std::size_t runCount() const;
  std::int32_t highestRunID() const;
  std::int32_t highestSignalID() const;

  void setDescription(const std::u16string& description);
  /// The run list keeps this order. Raises if there is a run of this id.
  void addRun(const RunRecord& run);
  /// Puts other values in the place of those that the run was added with. Its samples stay.
  void changeRun(const RunRecord& run);
  /// The signals of one run become one signals part; a signal goes to the part of the run it names, which
  /// must have been added. That signal ids differ is the caller's care.
  void addSignal(const SignalRecord& signal);
  /// What readers show as the session's compression. It only describes: how parts are packed is not its
  /// choice.
  void setCompressionType(const std::u16string& type);
  /// Stored as they are and never looked into. The last of several calls counts.
  void setView(std::string_view json);
  void setThumbnail(std::string_view bytes);

  /// Keeps the recorded samples of a run, whose record then names the part: `writeSamples` is called once
  /// with a function that takes the next bytes. If it raises, no samples are kept.
  using Sink = std::function<void(std::string_view)>;
  void addSamples(std::int32_t runID, const std::function<void(const Sink&)>& writeSamples);

  /// Saves the session. Without it nothing is kept. Closing again does nothing; any other call then raises.
  void close();

 private:
  struct State;
  explicit SessionWriter(std::unique_ptr<State> state);
  State& state() const;

  std::unique_ptr<State> state_;
};

}  // namespace tavlox
