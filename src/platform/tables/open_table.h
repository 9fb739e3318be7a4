#pragma once

#include <memory>

#include "platform/tables/dialect.h"
#include "platform/tables/table.h"
#include "platform/tables/table_file.h"

namespace tavlox::tables {

/// The table in a file, told by its first bytes: a raw file of ngspice, or else delimited text, which the
/// options are for. Raises tavlox:record:Hdf5NotSupported for HDF5, and what the tables raise.
std::unique_ptr<Table> openTable(TableFile file, const TableOptions& options);

}  // namespace tavlox::tables
