#pragma once

#include <cstdint>
#include <string>

#include "platform/export_file/session_writer.h"
#include "platform/tables/table.h"

/// From tables to the runs of a session.
namespace tavlox::recording {

/// Whether the file at `path` is a TAVLOX package: it opens, and it holds a session, user files or nothing.
/// Other programs keep their documents in packages too.
bool isTavloxPackage(const std::u16string& path);

/// What became of one table.
struct RecordedRun {
  RunRecord run;
  std::size_t signalCount = 0;
  std::uint64_t rowCount = 0;
  std::u16string sampleTime;  ///< seconds or "variable"; empty for a single row
};

/// Makes a run of each table, with a signal for each of its columns but the first, and gives runs and signals
/// the next identifiers of the session. The samples are kept in plain form, in memory that does not grow with
/// them. Only what the tables and the caller say is recorded, everything else is left out.
class Recorder {
 public:
  explicit Recorder(SessionWriter& writer) : writer_(writer) {}

  /// Reads all of the table. `run` is what the caller says of it: its name, its metadata; a date of its own
  /// goes before the table's. Raises tavlox:record:… errors for what the table must not hold, and
  /// tavlox:record:SessionFull where there are no more identifiers. After an error the session must not be
  /// closed: it has a run that is not complete.
  RecordedRun add(tables::Table& table, RunRecord run);

 private:
  std::int32_t nextSignalID() const;

  SessionWriter& writer_;
};

}  // namespace tavlox::recording
