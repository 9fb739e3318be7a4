#include "platform/tables/open_table.h"

#include "platform/errors/exceptions.h"
#include "platform/tables/raw_table.h"
#include "platform/tables/text_table.h"

namespace tavlox::tables {

std::unique_ptr<Table> openTable(TableFile file, const TableOptions& options) {
  const std::string_view bytes = file.peek(8);
  if (RawTable::begins(bytes)) return std::make_unique<RawTable>(std::move(file));
  // Told for what it is: as text it would be an unclear dialect.
  if (bytes == "\x89HDF\r\n\x1A\n")
    foundation::core::except::raise("tavlox:record:Hdf5NotSupported", file.name());
  return std::make_unique<TextTable>(std::move(file), options);
}

}  // namespace tavlox::tables
