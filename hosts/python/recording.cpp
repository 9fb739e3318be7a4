// Sessions made of data frames and of tables in files. Frames come as columns of doubles that Python owns;
// files are opened, told apart and read as the program `tavlox record` does it.

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>

#include "hosts/python/calls.h"
#include "hosts/python/samples.h"
#include "hosts/python/values.h"
#include "platform/errors/exceptions.h"
#include "platform/recording/recorder.h"
#include "platform/recording/run_settings.h"
#include "platform/tables/columns_table.h"
#include "platform/tables/open_table.h"
#include "platform/text/conversion.h"

namespace tavlox::python {
namespace {

using foundation::core::except::raise;
using tables::ColumnsTable;

/// A run that is to be recorded: of a file, or of columns if it has no path.
struct NewRun {
  std::u16string name, path;
  std::vector<std::pair<std::u16string, std::u16string>> fields;  ///< by the names that hosts show them under
  std::vector<ColumnsTable::Column> columns;                      ///< the time's first
  // The numbers of the columns. Nobody frees or resizes an array while it is referred to here.
  std::vector<py::array_t<double>> owners;
};

NewRun newRun(const py::tuple& run) {
  NewRun made{toText(run[0]), toText(run[1]), {}, {}, {}};
  for (const py::handle field : run[2]) {
    const auto pair = field.cast<py::tuple>();
    made.fields.emplace_back(toText(pair[0]), toText(pair[1]));
  }
  for (const py::handle item : run[3]) {
    const auto column = item.cast<py::tuple>();
    const auto& values = made.owners.emplace_back(column[3].cast<py::array_t<double>>());
    made.columns.push_back({toText(column[0]),
                            toText(column[1]),
                            {values.data(), static_cast<std::size_t>(values.size())},
                            toText(column[2])});
  }
  return made;
}

std::unique_ptr<tables::Table> tableOf(const NewRun& run) {
  if (run.path.empty()) return std::make_unique<ColumnsTable>(run.name, run.columns);
  return tables::openTable(tables::TableFile(run.path), {});
}

/// What a reader of plain tables would not have known of a file: its path, and how it was read.
using Assumed = std::pair<std::u16string, std::string>;

void tellAssumptions(const NewRun& run, const tables::TableDescription& table, std::vector<Assumed>& all) {
  for (const std::string& one : table.assumed) all.emplace_back(run.path, one);
  if (table.isTimeUnitAssumed) all.emplace_back(run.path, "times in seconds");
}

/// Lone surrogates, which Python's texts may have.
void refuseIllFormed(const std::u16string& path, const std::vector<NewRun>& runs) {
  if (!fl::i18n::is_well_formed(path)) raise("fl:filesystem:ImpossibleName", path);
  for (const NewRun& run : runs) {
    for (const ColumnsTable::Column& column : run.columns) {
      if (!fl::i18n::is_well_formed(column.name)) raise("export_file:session:IllFormedText", path, "name");
      if (!fl::i18n::is_well_formed(column.unit)) raise("export_file:session:IllFormedText", path, "units");
    }
  }
}

std::vector<Assumed> write(const std::u16string& path, const std::vector<NewRun>& runs,
                           const std::u16string& description, bool mayReplace) {
  refuseIllFormed(path, runs);
  using Existing = SessionWriter::Existing;
  SessionWriter writer(path, mayReplace ? Existing::Replace : Existing::Refuse);
  writer.setCompressionType(u"normal");
  recording::Recorder recorder(writer);
  std::vector<Assumed> assumed;
  for (const NewRun& run : runs) {
    RunRecord record;
    for (const auto& [field, value] : run.fields) recording::set(record, field, value);
    record.name = run.name;
    const std::unique_ptr<tables::Table> table = tableOf(run);
    recorder.add(*table, std::move(record));
    tellAssumptions(run, table->description(), assumed);
  }
  if (!description.empty()) writer.setDescription(description);
  // Only here the file appears.
  writer.close();
  return assumed;
}

/// A run is (name, path, [(field, value)], [(name, unit, data type, values)]), the time's column first. Gives
/// what was assumed of the files: [(path, text)].
py::list record(const py::str& path, const py::list& runs, const py::str& description, bool mayReplace) {
  std::vector<NewRun> made;
  for (const py::handle run : runs) made.push_back(newRun(run.cast<py::tuple>()));
  const auto assumed = inTurn(
      [&, file = toText(path), text = toText(description)] { return write(file, made, text, mayReplace); });
  py::list told;
  for (const auto& [table, text] : assumed) told.append(py::make_tuple(toPython(table), text));
  return told;
}

}  // namespace

void addRecording(py::module_& host) { host.def("record", &record); }

}  // namespace tavlox::python
