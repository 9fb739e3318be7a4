// A table is looked for first, by the kinds and shapes of datasets alone; then it becomes sources, of which
// each gives some rows with one call, and columns, of which each knows its place in the rows of a source. All
// numbers are read as eight bytes, so that one way of taking them apart is enough.
#include "platform/hdf5/hdf5_table.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <iterator>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/files/paths.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"

namespace tavlox::hdf5 {
namespace {

using fl::i18n::to_ustring;
using fl::i18n::to_ustring_lossy;
using foundation::core::except::raise;
using tables::Heading;

// Of groups in each other.
constexpr unsigned kDeepest = 64;
// Datasets that a message names.
constexpr std::size_t kMostShown = 10;
// Of the rows that are read at once, and of the library's unpacked chunks, all columns together.
constexpr std::size_t kBlockBytes = std::size_t{8} << 20, kChunkBytes = std::size_t{32} << 20;
constexpr std::size_t kMostRows = 8192;

std::string below(const std::string& path, const std::string& name) {
  return (path == "/" ? "" : path) + "/" + name;
}

bool isTimeName(std::string_view name) {
  std::u16string cut = tables::timeHeading(name).name;
  for (char16_t& letter : cut)
    if (letter >= u'A' && letter <= u'Z') letter = static_cast<char16_t>(letter - u'A' + u'a');
  return cut == u"time" || cut == u"t";
}

std::string listOf(const std::vector<std::string>& names) {
  std::string list;
  for (std::size_t i = 0; i < std::min(names.size(), kMostShown); ++i)
    list += fmt::format("{}\"{}\"", i > 0 ? ", " : "", names[i]);
  if (names.size() > kMostShown) list += ", ...";
  return list;
}

/// The units of a dataset, one text or one for each column; nothing if it says none.
std::optional<std::vector<std::string>> unitsOf(hid_t dataset) {
  for (const char* const name : {"units", "unit", "Units", "Unit"}) {
    std::vector<std::string> units = textsOf(dataset, name);
    if (!units.empty()) return units;
  }
  return std::nullopt;
}

std::vector<std::string> columnNamesOf(hid_t dataset) {
  std::vector<std::string> names = textsOf(dataset, "columns");
  return names.empty() ? textsOf(dataset, "names") : names;
}

std::vector<hsize_t> dimensionsOf(hid_t dataset) {
  const Handle space(H5Dget_space(dataset));
  const int rank = H5Sget_simple_extent_ndims(space.get());
  std::vector<hsize_t> dimensions(rank > 0 ? static_cast<std::size_t>(rank) : 0);
  if (rank > 0) H5Sget_simple_extent_dims(space.get(), dimensions.data(), nullptr);
  return dimensions;
}

/// Whether all lies along one dimension: also a matrix of one row or one column does.
bool isLine(const std::vector<hsize_t>& dimensions) {
  return !dimensions.empty() &&
         std::ranges::count_if(dimensions, [](hsize_t size) { return size != 1; }) <= 1;
}

/// Opens the file once more, for reading. The library looks up the name of what it opens; standard input,
/// which is kept in a file without one, gets a name for as long as that takes.
Handle openFile(int descriptor) {
  const std::string path = pathOf(descriptor);
  struct stat status {};
  const bool isNameless = fstat(descriptor, &status) == 0 && status.st_nlink == 0;
  const std::string folder = fl::i18n::to_string(fl::filesystem::temp_directory_path());
  const std::string name = fmt::format("{}/tavlox-{}.h5", folder, getpid());
  // Fails where the name is taken, so that nobody can lead it to another file; the library then tells the
  // rest.
  const bool isNamed =
      isNameless && linkat(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  Handle opened(H5Fopen((isNamed ? name : path).c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
  if (isNamed) unlink(name.c_str());
  return opened;
}

Handle typeOf(hid_t dataset) { return Handle(H5Dget_type(dataset)); }

Handle openDataset(hid_t place, const char* name, std::size_t chunkBytes) {
  const Handle access(H5Pcreate(H5P_DATASET_ACCESS));
  H5Pset_chunk_cache(access.get(), H5D_CHUNK_CACHE_NSLOTS_DEFAULT, chunkBytes, 1.0);
  return Handle(H5Dopen2(place, name, access.get()));
}

}  // namespace

Hdf5Table::Hdf5Table(tables::TableFile file, const tables::TableOptions& options)
    : file_(std::move(file)), activity_(u"Reading " + file_.name()) {
  keepQuiet();
  if (!file_.compression().empty())
    raise("tavlox:record:DamagedHdf5", file_.name(),
          fmt::format("it is packed with {}", file_.compression()));
  opened_ = openFile(file_.descriptor());
  if (!opened_) refuse("");
  std::string top = options.group.value_or("/");
  if (!top.starts_with('/')) top.insert(0, "/");
  const Handle place(H5Oopen(opened_.get(), top.c_str(), H5P_DEFAULT));
  if (!place) raise("tavlox:record:NoHdf5Group", file_.name(), top);
  if (H5Iget_type(place.get()) == H5I_DATASET)
    found_.push_back(top);
  else
    search(place.get(), top, 0);
  if (found_.empty()) raise("tavlox:record:NoHdf5Table", file_.name(), listOf(seen_));
  if (found_.size() > 1) raise("tavlox:record:SeveralHdf5Tables", file_.name(), listOf(found_));
  openTable(found_.front());
  describe(options);
}

void Hdf5Table::refuse(std::string_view path) const {
  raise("tavlox:record:DamagedHdf5", placeOf(path), lastReason());
}

std::u16string Hdf5Table::placeOf(std::string_view path) const {
  return path.empty() ? file_.name() : file_.name() + u":" + to_ustring_lossy(path);
}

/// What numbers of this type are; nothing if it is no type of numbers, or has more than eight bytes.
std::optional<Hdf5Table::Kind> Hdf5Table::kindOf(hid_t type) {
  const H5T_class_t kind = H5Tget_class(type);
  if (kind == H5T_FLOAT) return H5Tget_size(type) <= sizeof(float) ? Kind::Single : Kind::Double;
  if (kind == H5T_INTEGER && H5Tget_size(type) <= sizeof(std::uint64_t))
    return H5Tget_sign(type) == H5T_SGN_NONE ? Kind::Unsigned : Kind::Signed;
  if (kind != H5T_ENUM) return std::nullopt;
  // The format has no truth values; programs write them as an enumeration of these two names.
  std::int64_t ignored = 0;
  const bool isLogical = H5Tget_nmembers(type) == 2 && H5Tget_size(type) <= sizeof ignored &&
                         H5Tenum_valueof(type, "FALSE", &ignored) >= 0 &&
                         H5Tenum_valueof(type, "TRUE", &ignored) >= 0;
  return isLogical ? Kind::Logical : kindOf(Handle(H5Tget_super(type)).get());
}

/// Of the type that is read, which holds every number of the file's.
std::u16string Hdf5Table::typeNameOf(Kind kind) {
  switch (kind) {
    case Kind::Signed:
      return u"int64";
    case Kind::Unsigned:
      return u"uint64";
    case Kind::Logical:
      return u"boolean";
    default:
      return u"double";
  }
}

hid_t Hdf5Table::memoryTypeOf(Kind kind) {
  if (kind == Kind::Double || kind == Kind::Single) return H5T_NATIVE_DOUBLE;
  return kind == Kind::Unsigned ? H5T_NATIVE_UINT64 : H5T_NATIVE_INT64;
}

/// Finds all tables in the group and in those below it.
void Hdf5Table::search(hid_t group, const std::string& path, unsigned depth) {
  H5O_info_t info;
  if (H5Oget_info2(group, &info, H5O_INFO_BASIC) < 0) refuse(path);
  if (depth > kDeepest || std::ranges::find(visited_, info.addr) != visited_.end()) return;
  visited_.push_back(info.addr);
  std::size_t lines = 0;
  for (const std::string& name : linksOf(group)) {
    const Handle object(H5Oopen(group, name.c_str(), H5P_DEFAULT));
    if (!object) refuse(below(path, name));
    const H5I_type_t kind = H5Iget_type(object.get());
    if (kind == H5I_GROUP) search(object.get(), below(path, name), depth + 1);
    if (kind != H5I_DATASET) continue;
    seen_.push_back(below(path, name));
    const Handle type = typeOf(object.get());
    const std::vector<hsize_t> dimensions = dimensionsOf(object.get());
    const bool isNumbers = kindOf(type.get()).has_value();
    const bool isCompound = H5Tget_class(type.get()) == H5T_COMPOUND && isLine(dimensions);
    const bool isMatrix = isNumbers && dimensions.size() == 2 && !columnNamesOf(object.get()).empty();
    if (isCompound || isMatrix)
      found_.push_back(below(path, name));
    else if (isNumbers && isLine(dimensions))
      ++lines;
  }
  if (lines >= 2) found_.push_back(path);
}

Hdf5Table::Source Hdf5Table::sourceOf(hid_t dataset, const std::string& path) const {
  Source source;
  source.path = path;
  source.dimensions = dimensionsOf(dataset);
  const auto longest = std::ranges::find_if(source.dimensions, [](hsize_t size) { return size != 1; });
  if (longest != source.dimensions.end())
    source.axis = static_cast<std::size_t>(longest - source.dimensions.begin());
  return source;
}

/// Makes columns of what stands at the path.
void Hdf5Table::openTable(const std::string& path) {
  path_ = path;
  const Handle object(H5Oopen(opened_.get(), path.c_str(), H5P_DEFAULT));
  if (!object) refuse(path);
  if (H5Iget_type(object.get()) == H5I_GROUP) return addColumnsOf(object.get(), path);
  Source source = sourceOf(object.get(), path);
  source.dataset = openDataset(opened_.get(), path.c_str(), kChunkBytes);
  if (!source.dataset) refuse(path);
  const Handle type = typeOf(source.dataset.get());
  if (H5Tget_class(type.get()) == H5T_COMPOUND && isLine(source.dimensions))
    return addCompound(std::move(source), type.get());
  const auto kind = kindOf(type.get());
  const std::vector<std::string> names = columnNamesOf(object.get());
  if (!kind || source.dimensions.size() != 2 || names.size() != source.dimensions[1])
    raise("tavlox:record:NoHdf5Table", file_.name(), listOf({path}));
  addMatrix(std::move(source), *kind, names);
}

/// A group: each dataset is a source of one column.
void Hdf5Table::addColumnsOf(hid_t group, const std::string& path) {
  const std::vector<std::string> links = linksOf(group);
  const Handle making(H5Gget_create_plist(group));
  unsigned flags = 0;
  H5Pget_link_creation_order(making.get(), &flags);
  order_ = (flags & H5P_CRT_ORDER_INDEXED) != 0 ? Order::Given : Order::ByName;
  for (const std::string& name : links) {
    Source source = sourceOf(Handle(H5Oopen(group, name.c_str(), H5P_DEFAULT)).get(), below(path, name));
    source.dataset = openDataset(group, name.c_str(), kChunkBytes / links.size());
    // Another group, which may stand among them.
    if (!source.dataset) continue;
    const auto kind = kindOf(typeOf(source.dataset.get()).get());
    if (!kind || !isLine(source.dimensions)) {
      leftOut_.push_back(name);
      continue;
    }
    source.memoryType = Handle(H5Tcopy(memoryTypeOf(*kind)));
    Column column{name, std::nullopt, sources_.size(), 0, *kind};
    if (const auto units = unitsOf(source.dataset.get())) column.unit = units->front();
    if (const auto own = textsOf(source.dataset.get(), "name"); !own.empty()) column.name = own.front();
    columns_.push_back(std::move(column));
    sources_.push_back(std::move(source));
  }
}

/// A compound dataset: one source, and each member that is a number a column.
void Hdf5Table::addCompound(Source source, hid_t type) {
  const auto units = unitsOf(source.dataset.get());
  const auto members = static_cast<unsigned>(std::max(H5Tget_nmembers(type), 0));
  struct Member {
    std::string name;
    Kind kind;
  };
  std::vector<Member> taken;
  for (unsigned i = 0; i < members; ++i) {
    char* const text = H5Tget_member_name(type, i);
    if (text == nullptr) refuse(source.path);
    const std::string name = text;
    H5free_memory(text);
    const auto kind = kindOf(Handle(H5Tget_member_type(type, i)).get());
    if (!kind) {
      leftOut_.push_back(name);
      continue;
    }
    const bool hasUnit = units && units->size() == members;
    columns_.push_back({name, hasUnit ? std::optional((*units)[i]) : std::nullopt, 0, taken.size(), *kind});
    taken.push_back({name, *kind});
  }
  source.columns = std::max<std::size_t>(taken.size(), 1);
  source.memoryType = Handle(H5Tcreate(H5T_COMPOUND, source.columns * sizeof(double)));
  for (std::size_t i = 0; i < taken.size(); ++i)
    H5Tinsert(source.memoryType.get(), taken[i].name.c_str(), i * sizeof(double),
              memoryTypeOf(taken[i].kind));
  sources_.push_back(std::move(source));
}

/// A matrix: one source, whose rows are the table's.
void Hdf5Table::addMatrix(Source source, Kind kind, const std::vector<std::string>& names) {
  const auto units = unitsOf(source.dataset.get());
  for (std::size_t i = 0; i < names.size(); ++i) {
    const bool hasUnit = units && units->size() == names.size();
    columns_.push_back({names[i], hasUnit ? std::optional((*units)[i]) : std::nullopt, 0, i, kind});
  }
  source.axis = 0;
  source.columns = names.size();
  source.memoryType = Handle(H5Tcopy(memoryTypeOf(kind)));
  sources_.push_back(std::move(source));
}

void Hdf5Table::describe(const tables::TableOptions& options) {
  std::size_t width = 1;
  for (const Source& source : sources_) width += source.columns * sizeof(double);
  mostRows_ = std::clamp<std::size_t>(kBlockBytes / width, 1, kMostRows);
  if (!leftOut_.empty())
    description_.assumed.push_back("its columns of numbers alone, without " + listOf(leftOut_));
  if (!columns_.empty()) moveTimeToFront();
  for (const Column& column : columns_) {
    Heading heading =
        &column == columns_.data() ? tables::timeHeading(column.name) : tables::signalHeading(column.name);
    if (column.unit) {
      // Who says the unit beside the name has no need to say it in the name.
      if (&column != columns_.data()) heading.name = heading.written;
      heading.unit = column.unit->empty() ? std::nullopt : std::optional(to_ustring_lossy(*column.unit));
    }
    heading.dataType = typeNameOf(column.kind);
    description_.headings.push_back(std::move(heading));
  }
  if (!columns_.empty()) {
    std::optional<std::u16string>& unit = description_.headings.front().unit;
    // "seconds since 2026-03-01": the times are seconds.
    if (unit) unit = unit->substr(0, unit->find(u" since "));
    if (options.timeUnit) unit = to_ustring(*options.timeUnit);
  }
  checkHeadings(placeOf(path_), 1);
  requireEqualLengths();
  if (rows_ == 0) raise("tavlox:record:NoRows", placeOf(path_), 2, 1);
  const Handle place(H5Oopen(opened_.get(), path_.c_str(), H5P_DEFAULT));
  if (const auto name = textsOf(place.get(), "name"); !name.empty())
    description_.name = to_ustring_lossy(name.front());
  description_.source = fl::filesystem::extract_filename(file_.name());
  description_.date = file_.date();
  description_.headingLine = plainHeadingLine(description_.headings, description_.timeUnit);
}

void Hdf5Table::requireEqualLengths() const {
  for (const Column& column : columns_) {
    const Source& source = sources_[column.source];
    const std::uint64_t rows = source.dimensions[source.axis];
    if (rows != rows_) raise("tavlox:record:UnevenColumns", file_.name(), source.path, rows, rows_);
  }
}

/// Raises tavlox:record:NoHdf5Time if it is not clear which column is the time.
void Hdf5Table::moveTimeToFront() {
  auto time = std::ranges::find_if(columns_, isTimeName, &Column::name);
  if (time == columns_.end() && order_ == Order::Given) time = columns_.begin();
  if (time == columns_.end()) {
    std::vector<std::string> increasing;
    for (auto column = columns_.begin(); column != columns_.end(); ++column) {
      if (!isIncreasing(*column)) continue;
      increasing.push_back(column->name);
      time = column;
    }
    if (increasing.size() != 1) raise("tavlox:record:NoHdf5Time", placeOf(path_), listOf(increasing));
  }
  if (!isTimeName(time->name)) description_.assumed.push_back(fmt::format("\"{}\" as the time", time->name));
  std::rotate(columns_.begin(), time, time + 1);
  const Source& source = sources_[columns_.front().source];
  rows_ = source.dimensions[source.axis];
}

/// Reads on until it does not; so all of it only where it does.
bool Hdf5Table::isIncreasing(const Column& column) {
  Source& source = sources_[column.source];
  const std::uint64_t rows = source.dimensions[source.axis];
  double last = -std::numeric_limits<double>::infinity();
  for (std::uint64_t first = 0; first < rows;) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(mostRows_, rows - first));
    readRows(source, first, count);
    for (std::size_t row = 0; row < count; ++row) {
      const double number = numberAt(column, row);
      // A NaN is no more than anything.
      if (!(number > last)) return false;
      last = number;
    }
    first += count;
  }
  return rows > 1;
}

void Hdf5Table::readRows(Source& source, std::uint64_t first, std::size_t count) {
  std::vector<hsize_t> start(source.dimensions.size()), size = source.dimensions;
  start[source.axis] = first;
  size[source.axis] = count;
  hsize_t elements = 1;
  for (const hsize_t along : size) elements *= along;
  const Handle file(H5Dget_space(source.dataset.get())), memory(H5Screate_simple(1, &elements, nullptr));
  H5Sselect_hyperslab(file.get(), H5S_SELECT_SET, start.data(), nullptr, size.data(), nullptr);
  source.numbers.resize(count * source.columns);
  if (H5Dread(source.dataset.get(), source.memoryType.get(), memory.get(), file.get(), H5P_DEFAULT,
              source.numbers.data()) < 0)
    refuse(source.path);
}

void Hdf5Table::readBlock() {
  blockStart_ = row_;
  blockRows_ = static_cast<std::size_t>(std::min<std::uint64_t>(mostRows_, rows_ - row_));
  for (Source& source : sources_) readRows(source, blockStart_, blockRows_);
  corvan::reportProgress({.activity = activity_.c_str(), .done = row_, .total = rows_});
}

double Hdf5Table::numberAt(const Column& column, std::size_t row) const {
  const Source& source = sources_[column.source];
  const std::uint64_t bits = source.numbers[row * source.columns + column.place];
  if (column.kind == Kind::Unsigned) return static_cast<double>(bits);
  if (column.kind == Kind::Double || column.kind == Kind::Single) return std::bit_cast<double>(bits);
  return static_cast<double>(std::bit_cast<std::int64_t>(bits));
}

/// Appends the number with all digits that it has, and no more.
void Hdf5Table::append(const Column& column, std::size_t row) {
  const Source& source = sources_[column.source];
  const std::uint64_t bits = source.numbers[row * source.columns + column.place];
  char digits[32];
  const auto add = [&](auto number) {
    plain_.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
  };
  switch (column.kind) {
    case Kind::Double:
      return add(std::bit_cast<double>(bits));
    case Kind::Single:
      return add(static_cast<float>(std::bit_cast<double>(bits)));
    case Kind::Unsigned:
      return add(bits);
    default:
      return add(std::bit_cast<std::int64_t>(bits));
  }
}

bool Hdf5Table::next(tables::Row& row) {
  plain_.clear();
  row.plain = {};
  if (row_ == rows_) {
    file_.requireUnchanged();
    return false;
  }
  if (row_ == blockStart_ + blockRows_) readBlock();
  const auto place = static_cast<std::size_t>(row_ - blockStart_);
  ++row_;
  for (const Column& column : columns_) {
    append(column, place);
    plain_ += ',';
  }
  plain_.back() = '\n';
  row.time = numberAt(columns_.front(), place);
  if (!std::isfinite(row.time))
    raise("tavlox:record:TimeNotANumber", placeOf(sources_[columns_.front().source].path), row_ + 1, 1,
          plain_.substr(0, plain_.find(',')));
  row.plain = plain_;
  return true;
}

void Hdf5Table::refuseTime() const {
  raise("tavlox:record:TimeNotIncreasing", placeOf(sources_[columns_.front().source].path), row_ + 1, 1,
        plain_.substr(0, plain_.find(',')));
}

}  // namespace tavlox::hdf5
