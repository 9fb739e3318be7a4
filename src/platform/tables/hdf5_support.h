#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/tables/dialect.h"
#include "platform/tables/table.h"
#include "platform/tables/table_file.h"

/// HDF5 files. The library for them brings some forty others along, network and encryption among them, so
/// neither the platform nor a program links it: what uses it is a shared library of its own, tavlox_hdf5.so
/// beside the module, which is loaded when the first such file is met.
namespace tavlox::tables {

/// Writes runs to a new HDF5 file: a group for each, with a one-dimensional dataset for each of its columns.
/// Raises opc::Exception, opc:save:CannotWrite, for what the disk refuses.
class Hdf5Writer {
 public:
  struct Column {
    std::u16string name;
    std::u16string unit;  ///< becomes the attribute "units"; empty for none
  };
  virtual ~Hdf5Writer();

  /// Begins the group of a run, whose attributes are its name and id. The first column is the time. A name
  /// that cannot be a dataset's, or is taken, is changed, and the column's own is then the attribute "name".
  virtual void beginRun(const std::u16string& name, std::int32_t id, const std::vector<Column>& columns) = 0;
  /// The next row of the run, with a value for each column.
  virtual void add(std::span<const double> row) = 0;
  /// Closes the file. Without it the file is not complete.
  virtual void finish() = 0;
};

/// What tavlox_hdf5.so offers.
struct Hdf5Support {
  /// The table in a file; see Hdf5Table.
  std::unique_ptr<Table> (*openTable)(TableFile file, const TableOptions& options);
  /// Writes to an open file, which must be empty and outlive the writer. `name` is what messages call it.
  std::unique_ptr<Hdf5Writer> (*makeWriter)(const std::u16string& name, int descriptor);
};

/// The name under which the library exports a function that gives its Hdf5Support.
inline constexpr const char* kHdf5EntryPoint = "tavloxHdf5Support";

/// Whether a file that begins like this is in HDF5. Other data of up to `kHdf5Prefix` bytes may stand in
/// front.
bool beginsAsHdf5(std::string_view bytes);
inline constexpr std::size_t kHdf5Prefix = 2048 + 8;

/// Loads the library once, for good. Raises tavlox:record:Hdf5NotSupported, with the name of the file that it
/// is needed for and the reason, if it is not installed or cannot be loaded.
const Hdf5Support& hdf5Support(const std::u16string& file);

}  // namespace tavlox::tables
