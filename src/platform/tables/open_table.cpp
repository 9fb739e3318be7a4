#include "platform/tables/open_table.h"

#include "platform/tables/hdf5_support.h"
#include "platform/tables/raw_table.h"
#include "platform/tables/text_table.h"

namespace tavlox::tables {

std::unique_ptr<Table> openTable(TableFile file, const TableOptions& options) {
  const std::string_view bytes = file.peek(kHdf5Prefix);
  if (RawTable::begins(bytes)) return std::make_unique<RawTable>(std::move(file));
  if (beginsAsHdf5(bytes)) {
    const Hdf5Support& support = hdf5Support(file.name());
    return support.openTable(std::move(file), options);
  }
  return std::make_unique<TextTable>(std::move(file), options);
}

}  // namespace tavlox::tables
