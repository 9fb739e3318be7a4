#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/hdf5/hdf5_file.h"
#include "platform/tables/hdf5_support.h"

namespace tavlox::hdf5 {

/// A table in an HDF5 file. It is one of
/// - a group with two or more one-dimensional datasets of numbers, equally long; other datasets are left out,
/// - a one-dimensional compound dataset; members that are no single numbers are left out,
/// - a two-dimensional dataset of numbers with an attribute "columns" or "names" that names its columns.
///
/// It is looked for in the whole file, or in what `options.group` names. Its time is the column named time or
/// t, whatever the case. Without one it is the first column where those have an order, and in a group
/// otherwise the only dataset whose numbers increase. Units are attributes "units" or "unit", or part of a
/// name as in any heading. Whole numbers keep all their digits, and single precision has as few as single
/// precision needs.
///
/// Rows are read some thousand at a time, in memory that does not grow with their number, apart from the
/// chunks that the file is made of.
///
/// Raises tavlox:record:DamagedHdf5 for what the library cannot read, NoHdf5Table, SeveralHdf5Tables,
/// NoHdf5Time, UnevenColumns and what all tables raise. Errors name the dataset as "FILE:/group/dataset".
class Hdf5Table : public tables::Table {
 public:
  Hdf5Table(tables::TableFile file, const tables::TableOptions& options);

  bool next(tables::Row& row) override;
  [[noreturn]] void refuseTime() const override;

 private:
  enum class Kind { Double, Single, Signed, Unsigned, Logical };
  /// A dataset of which whole rows are read at once. A row has `columns` numbers of eight bytes each.
  struct Source {
    Handle dataset, memoryType;
    std::string path;
    std::vector<hsize_t> dimensions;
    std::size_t axis = 0;  ///< the dimension along which the rows lie
    std::size_t columns = 1;
    std::vector<std::uint64_t> numbers;  ///< the rows that were read, as the bytes of double or integer
  };
  /// One column: where its numbers are, and what they are.
  struct Column {
    std::string name;
    std::optional<std::string> unit;  ///< as an attribute says it, may be empty
    std::size_t source = 0, place = 0;
    Kind kind = Kind::Double;
  };
  enum class Order { Given, ByName };

  // Looking for the table.
  void search(hid_t group, const std::string& path, unsigned depth);
  void openTable(const std::string& path);
  void addColumnsOf(hid_t group, const std::string& path);
  void addCompound(Source source, hid_t type);
  void addMatrix(Source source, Kind kind, const std::vector<std::string>& names);

  // Making rows of it.
  void moveTimeToFront();
  bool isIncreasing(const Column& column);
  void describe(const tables::TableOptions& options);
  void requireEqualLengths() const;
  void readRows(Source& source, std::uint64_t first, std::size_t count);
  void readBlock();
  double numberAt(const Column& column, std::size_t row) const;
  void append(const Column& column, std::size_t row);

  static std::optional<Kind> kindOf(hid_t type);
  static hid_t memoryTypeOf(Kind kind);
  static std::u16string typeNameOf(Kind kind);
  Source sourceOf(hid_t dataset, const std::string& path) const;
  std::u16string placeOf(std::string_view path) const;
  [[noreturn]] void refuse(std::string_view path) const;

  tables::TableFile file_;
  std::u16string activity_;
  Handle opened_;
  std::vector<std::string> found_;    ///< paths of tables
  std::vector<std::string> seen_;     ///< paths of datasets, which a message shows
  std::vector<std::string> leftOut_;  ///< names of what is in the table's place, but no column of it
  std::vector<haddr_t> visited_;      ///< groups: links may lead in circles
  std::string path_;                  ///< of the table
  Order order_ = Order::Given;
  std::vector<Source> sources_;
  std::vector<Column> columns_;
  std::uint64_t rows_ = 0, row_ = 0;          ///< how many there are, and how many were given
  std::uint64_t blockStart_ = 0;              ///< of the rows that were read
  std::size_t blockRows_ = 0, mostRows_ = 1;  ///< how many they are, and can be
  std::string plain_;
};

}  // namespace tavlox::hdf5
