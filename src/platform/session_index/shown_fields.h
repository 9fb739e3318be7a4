#pragma once

#include <span>
#include <string>

#include "platform/filter/filter.h"
#include "platform/samples/recorded_session.h"
#include "platform/session_index/rows.h"

/// The fields of files, runs and signals, with the names and values that hosts show. These are what
/// conditions name and what the columns of the index are; the package's path, "Filename", is the first of
/// each.
namespace tavlox::session_index {

enum class Subject { Files, Runs, Signals };
/// By its name: "files", "runs" or "signals". Raises tavlox:index:NoSuchSubject.
Subject subjectOf(const std::u16string& name);
std::span<const filter::Field> fieldsOf(Subject subject);
/// Those of a signal that are known without its samples: all but minimum, maximum and count.
std::span<const filter::Field> signalFieldsWithoutStatistics();

/// Writes the values of a run's fields behind the path, and then the text that searches look in.
void writeRun(const samples::RecordedRun& run, RowWriter& row);
/// The same of a signal, up to the statistics.
void writeSignal(const samples::RecordedRun& run, const orra::SignalRecord& signal, RowWriter& row);

}  // namespace tavlox::session_index
