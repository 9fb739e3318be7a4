#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/export_file/session_writer.h"

namespace tavlox::cli {

/// What a session is to be made of.
struct RecordingPlan {
  std::u16string output;
  std::vector<std::u16string> tables;  ///< paths of CSV files, one run each
  std::u16string description;          ///< may be empty
  SessionWriter::Existing existing = SessionWriter::Existing::Refuse;
};

/// What became of one table.
struct RecordedRun {
  RunRecord run;
  std::size_t signalCount = 0;
  std::uint64_t rowCount = 0;
  std::u16string sampleTime;  ///< seconds or "variable"; empty for a single row
};

/// Makes a session package of simulation results: a run for each table, with a signal for each of its columns
/// but the first. Each table is checked and then kept byte for byte as the run's samples, in constant memory.
/// Only what the tables say is recorded, everything else is left out.
///
/// Raises tavlox:record:… errors, tavlox:general:FileNotFound for a missing table, and opc::Exception; there
/// is no package then, and one that was to be replaced is as it was.
std::vector<RecordedRun> recordSession(const RecordingPlan& plan);

}  // namespace tavlox::cli
