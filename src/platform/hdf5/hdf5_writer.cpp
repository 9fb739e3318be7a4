// What the library exports stands at the end of this file.
#include <algorithm>
#include <set>

#include "platform/errors/package_errors.h"
#include "platform/hdf5/hdf5_file.h"
#include "platform/hdf5/hdf5_table.h"
#include "platform/tables/hdf5_support.h"
#include "platform/text/conversion.h"

namespace tavlox::hdf5 {
namespace {

using fl::i18n::to_string;

// Of a column's rows that are kept until they are written, and so of the file's chunks, all columns together.
constexpr std::size_t kChunkBytes = std::size_t{8} << 20;
constexpr std::size_t kFewestRows = 128, kMostRows = 16'384;

/// A name for a link that is like `name` and none of those taken: a slash would make groups, and "." is the
/// group itself.
std::string linkName(std::string name, std::set<std::string>& taken) {
  std::ranges::replace(name, '/', '_');
  if (name.empty() || name == ".") name = "_";
  std::string free = name;
  for (int number = 2; !taken.insert(free).second; ++number) free = name + "_" + std::to_string(number);
  return free;
}

/// Writes a run's columns in chunks of equal size. A column's dataset is made when its first chunk is full,
/// so that the chunk of a short run is no larger than the run.
class Writer : public tables::Hdf5Writer {
 public:
  Writer(const std::u16string& name, int descriptor) : name_(to_string(name)) {
    keepQuiet();
    // Groups keep the order of their links, so that signals stay in theirs.
    const Handle making(H5Pcreate(H5P_FILE_CREATE)), access(H5Pcreate(H5P_FILE_ACCESS));
    H5Pset_link_creation_order(making.get(), H5P_CRT_ORDER_TRACKED | H5P_CRT_ORDER_INDEXED);
    // The file has no name yet that others could open it by, and not every file system has locks.
    H5Pset_file_locking(access.get(), false, true);
    file_ = Handle(H5Fcreate(pathOf(descriptor).c_str(), H5F_ACC_TRUNC, making.get(), access.get()));
    require(static_cast<bool>(file_));
  }

  void beginRun(const std::u16string& name, std::int32_t id, const std::vector<Column>& columns) override {
    flush();
    const Handle making(H5Pcreate(H5P_GROUP_CREATE));
    H5Pset_link_creation_order(making.get(), H5P_CRT_ORDER_TRACKED | H5P_CRT_ORDER_INDEXED);
    const std::string link = linkName(to_string(name), groups_);
    group_ = Handle(H5Gcreate2(file_.get(), link.c_str(), inUtf8().get(), making.get(), H5P_DEFAULT));
    require(group_ && writeText(group_.get(), "name", to_string(name)));
    const Handle scalar(H5Screate(H5S_SCALAR));
    const Handle attribute(
        H5Acreate2(group_.get(), "id", H5T_STD_I32LE, scalar.get(), H5P_DEFAULT, H5P_DEFAULT));
    require(attribute && H5Awrite(attribute.get(), H5T_NATIVE_INT32, &id) >= 0);
    columns_ = columns;
    datasets_.clear();
    chunks_.assign(columns.size(), {});
    rows_ = 0;
    chunkRows_ = std::clamp(kChunkBytes / (sizeof(double) * std::max<std::size_t>(columns.size(), 1)),
                            kFewestRows, kMostRows);
  }

  void add(std::span<const double> row) override {
    for (std::size_t column = 0; column < chunks_.size(); ++column) chunks_[column].push_back(row[column]);
    if (chunks_.front().size() == chunkRows_) flush();
  }

  void finish() override {
    flush();
    group_ = {};
    datasets_.clear();
    require(H5Fflush(file_.get(), H5F_SCOPE_GLOBAL) >= 0 && file_.close());
  }

 private:
  void require(bool isDone) const {
    if (!isDone) opc::raise("opc:save:CannotWrite", name_, lastReason());
  }

  static Handle inUtf8() {
    Handle making(H5Pcreate(H5P_LINK_CREATE));
    H5Pset_char_encoding(making.get(), H5T_CSET_UTF8);
    return making;
  }

  void makeDatasets(hsize_t rows) {
    const Handle making(H5Pcreate(H5P_DATASET_CREATE));
    // One recording exported twice gives the same bytes.
    H5Pset_obj_track_times(making.get(), false);
    const hsize_t most = H5S_UNLIMITED, chunk = std::max<hsize_t>(rows, 1);
    H5Pset_chunk(making.get(), 1, &chunk);
    const hsize_t none = 0;
    const Handle space(H5Screate_simple(1, &none, &most));
    std::set<std::string> links;
    for (const Column& column : columns_) {
      const std::string name = to_string(column.name), link = linkName(name, links);
      datasets_.emplace_back(H5Dcreate2(group_.get(), link.c_str(), H5T_IEEE_F64LE, space.get(),
                                        inUtf8().get(), making.get(), H5P_DEFAULT));
      require(static_cast<bool>(datasets_.back()));
      require(writeText(datasets_.back().get(), "units", to_string(column.unit)));
      require(link == name || writeText(datasets_.back().get(), "name", name));
    }
  }

  /// Writes the rows that are kept, behind those that were written.
  void flush() {
    if (!group_) return;
    const hsize_t count = chunks_.empty() ? 0 : chunks_.front().size(), all = rows_ + count;
    if (datasets_.empty()) makeDatasets(count);
    if (count == 0) return;
    const Handle memory(H5Screate_simple(1, &count, nullptr));
    for (std::size_t column = 0; column < chunks_.size(); ++column) {
      const hid_t dataset = datasets_[column].get();
      require(H5Dset_extent(dataset, &all) >= 0);
      const Handle space(H5Dget_space(dataset));
      H5Sselect_hyperslab(space.get(), H5S_SELECT_SET, &rows_, nullptr, &count, nullptr);
      require(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, memory.get(), space.get(), H5P_DEFAULT,
                       chunks_[column].data()) >= 0);
      chunks_[column].clear();
    }
    rows_ = all;
  }

  std::string name_;
  Handle file_, group_;
  std::set<std::string> groups_;
  std::vector<Column> columns_;
  std::vector<Handle> datasets_;
  std::vector<std::vector<double>> chunks_;  ///< by column, of rows that are not written yet
  hsize_t rows_ = 0;                         ///< that are
  std::size_t chunkRows_ = 0;
};

std::unique_ptr<tables::Table> openTable(tables::TableFile file, const tables::TableOptions& options) {
  return std::make_unique<Hdf5Table>(std::move(file), options);
}

std::unique_ptr<tables::Hdf5Writer> makeWriter(const std::u16string& name, int descriptor) {
  return std::make_unique<Writer>(name, descriptor);
}

}  // namespace
}  // namespace tavlox::hdf5

/// Under the name of tavlox::tables::kHdf5EntryPoint.
extern "C" [[gnu::visibility("default")]] const tavlox::tables::Hdf5Support* tavloxHdf5Support() {
  static constexpr tavlox::tables::Hdf5Support support{tavlox::hdf5::openTable, tavlox::hdf5::makeWriter};
  return &support;
}
