#pragma once

#include <memory>

#include "platform/tables/dialect.h"
#include "platform/tables/table.h"
#include "platform/tables/table_file.h"

namespace tavlox::tables {

/// The table in a file, told by its first bytes: a raw file of ngspice, HDF5, or else delimited text, which
/// most of the options are for. Raises what hdf5Support and the tables raise.
std::unique_ptr<Table> openTable(TableFile file, const TableOptions& options);

}  // namespace tavlox::tables
