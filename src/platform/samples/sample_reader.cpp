#include "platform/samples/sample_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>

#include "platform/errors/exceptions.h"
#include "platform/progress/progress.h"

// The text of the part goes through one buffer. It is filled, its whole lines are taken apart in place, and
// what is left of the last line moves to the front. Almost every line has no quote in it: its cells are found
// by searching for commas, and numbers are parsed where they stand, so that a cell that nobody asked for
// costs no more than the search. The careful way, for quotes and blanks, is taken only where the fast one
// does not come out at a comma.
namespace tavlox::samples {
namespace {

using foundation::core::except::raise;

// Large enough that a read costs little beside parsing, small enough for the processor's cache.
constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
// Of a line: some 100,000 columns.
constexpr std::size_t kLongestLine = std::size_t{16} << 20;
// Bytes of a cell that a message quotes.
constexpr std::size_t kShownOfCell = 40;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

/// Takes the first cell off a line that may hold quotes. `line` then begins behind its comma; nothing if it
/// was the last.
std::string_view takeCell(std::optional<std::string_view>& line) {
  std::size_t end = line->find_first_not_of(" \t");
  if (end != std::string_view::npos && (*line)[end] == '"') {
    // A doubled quote closes the text and opens it again, which leaves a comma behind it where it belongs.
    for (bool isQuoted = false; end < line->size() && (isQuoted || (*line)[end] != ','); ++end)
      if ((*line)[end] == '"') isQuoted = !isQuoted;
    end = std::min(end, line->size());
  } else {
    end = std::min(line->find(','), line->size());
  }
  std::string_view cell = withoutBlanks(line->substr(0, end));
  if (cell.size() >= 2 && cell.front() == '"' && cell.back() == '"') cell = cell.substr(1, cell.size() - 2);
  if (end == line->size())
    line.reset();
  else
    line->remove_prefix(end + 1);
  return cell;
}

/// The whole cell as a number, whatever the locale; NaN for an empty one.
std::optional<double> parseCell(std::string_view cell) {
  if (cell.empty()) return std::numeric_limits<double>::quiet_NaN();
  // from_chars knows no plus sign, but some simulators write one.
  if (cell.starts_with('+') && !cell.starts_with("+-")) cell.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), number);
  if (end != cell.data() + cell.size()) return std::nullopt;
  // Too large or too small for a double: what the digits say is infinite or nothing at all, which from_chars
  // leaves to the caller.
  if (error == std::errc::result_out_of_range) return std::strtod(std::string(cell).c_str(), nullptr);
  return error == std::errc() ? std::optional(number) : std::nullopt;
}

/// A cell as a message shows it.
std::string shown(std::string_view cell) {
  return cell.size() <= kShownOfCell ? std::string(cell) : std::string(cell.substr(0, kShownOfCell)) + "...";
}

}  // namespace

struct SampleReader::State {
  State(const opc::model::Package& package, const opc::model::PartName& name, Wanted asked)
      : path(package.path()), part(name), wanted(std::move(asked)) {
    const opc::model::Part found = package.getPart(name);
    input = found.getInputStream();
    size = found.getSize();
    for (std::size_t i = 0; i < wanted.columns.size(); ++i) order.push_back({wanted.columns[i], i});
    std::ranges::sort(order);
  }

  void readHeadings();
  void takeRow(std::string_view line, SampleBlock& block);
  void makeRoom(SampleBlock& block);
  std::optional<std::string_view> nextLine();
  bool readOn();

  [[noreturn]] void refuseCell(std::uint32_t column, std::string_view cell) const {
    raise("samples:part:NotANumber", path, part.text(), line, column, shown(cell));
  }
  [[noreturn]] void refuseShortRow() const {
    raise("samples:part:ShortRow", path, part.text(), line, headings.size());
  }

  std::u16string path;  ///< of the package
  opc::model::PartName part;
  Wanted wanted;
  std::shared_ptr<opc::InputStream> input;
  std::uint64_t size = 0, bytesRead = 0;

  /// The columns in the order of the file, each with its place among those that were asked for.
  struct Column {
    std::uint32_t column;
    std::size_t place;
    auto operator<=>(const Column&) const = default;
  };
  std::vector<Column> order;

  std::vector<char> buffer = std::vector<char>(kBufferBytes);
  std::size_t start = 0, filled = 0;  ///< what was not taken apart yet
  bool isAtEnd = false;               ///< nothing is left to be read into the buffer
  bool isDone = false;                ///< the end of the part or of the time range was met
  char lineEnd = '\n';
  std::uint64_t line = 0;  ///< of the line that is taken apart, from 1

  std::vector<std::string> headings;
  const tables::TimeUnit* unit = tables::findTimeUnit("s");
  double lastTime = -std::numeric_limits<double>::infinity();
};

/// Fills the buffer up. False at the end of the part.
bool SampleReader::State::readOn() {
  std::memmove(buffer.data(), buffer.data() + start, filled - start);
  filled -= std::exchange(start, 0);
  if (filled == buffer.size()) {
    // A single line fills it.
    if (filled >= kLongestLine) raise("samples:part:LineTooLong", path, part.text(), line + 1);
    buffer.resize(2 * filled);
  }
  const std::size_t got = input->read(buffer.data() + filled, buffer.size() - filled);
  filled += got;
  bytesRead += got;
  isAtEnd = got == 0;
  corvan::reportProgress({u"Reading samples", bytesRead, size});
  return !isAtEnd;
}

/// The next line that is complete in the buffer, without its end; nothing if there is none. At the end of the
/// part the last line may lack its end.
std::optional<std::string_view> SampleReader::State::nextLine() {
  const char* const first = buffer.data() + start;
  const std::size_t left = filled - start;
  const void* const found = std::memchr(first, lineEnd, left);
  if (found == nullptr && (!isAtEnd || left == 0)) return std::nullopt;
  std::size_t length =
      found == nullptr ? left : static_cast<std::size_t>(static_cast<const char*>(found) - first);
  start += found == nullptr ? length : length + 1;
  ++line;
  if (length > 0 && first[length - 1] == '\r') --length;
  return std::string_view(first, length);
}

/// The heading line is the only one in which a quoted cell may hold a line end.
void SampleReader::State::readHeadings() {
  while (filled < kByteOrderMark.size() && readOn()) {
  }
  if (std::string_view(buffer.data(), filled).starts_with(kByteOrderMark)) start = kByteOrderMark.size();
  std::size_t at = start;
  for (bool isQuoted = false;; ++at) {
    // Reading on moves what is there to the front of the buffer.
    while (at == filled && !isAtEnd) {
      at -= start;
      readOn();
    }
    if (at == filled) break;
    const char byte = buffer[at];
    if (byte == '"') isQuoted = !isQuoted;
    if (byte == '\n' && isQuoted) ++line;
    if (isQuoted || (byte != '\n' && byte != '\r')) continue;
    // Empty lines before the headings.
    if (!withoutBlanks({buffer.data() + start, at - start}).empty()) break;
    line += byte == '\n' ? 1 : 0;
    start = at + 1;
  }
  // Where a lone carriage return ends the first line, it ends all of them.
  if (at + 1 == filled && !isAtEnd) {
    at -= start;
    readOn();
  }
  const bool isLoneReturn = at < filled && buffer[at] == '\r' && (at + 1 == filled || buffer[at + 1] != '\n');
  if (isLoneReturn) lineEnd = '\r';

  if (withoutBlanks({buffer.data() + start, at - start}).empty())
    raise("samples:part:NoHeading", path, part.text());
  std::optional<std::string_view> rest = std::string_view(buffer.data() + start, at - start);
  while (rest) {
    std::string heading(takeCell(rest));
    // A quote in a quoted cell stands there twice.
    for (std::size_t quote = 0; (quote = heading.find("\"\"", quote)) != std::string::npos; ++quote)
      heading.erase(quote, 1);
    headings.push_back(std::move(heading));
  }
  start = at + (at < filled ? 1 : 0) + (at < filled && buffer[at] == '\r' && !isLoneReturn ? 1 : 0);
  ++line;

  const std::string& time = headings.front();
  const std::size_t bracket = time.rfind('[');
  if (bracket != std::string::npos && time.ends_with(']')) {
    const std::string name = time.substr(bracket + 1, time.size() - bracket - 2);
    unit = tables::findTimeUnit(name);
    if (unit == nullptr) raise("samples:part:UnknownTimeUnit", path, part.text(), name);
  }
  for (const Column& column : order) {
    if (column.column >= 1 && column.column <= headings.size()) continue;
    raise("samples:part:NoSuchColumn", path, part.text(), column.column, headings.size());
  }
}

/// Makes the vectors of the block longer; they are cut to the number of rows at the end.
void SampleReader::State::makeRoom(SampleBlock& block) {
  if (block.rows < block.times.size()) return;
  const std::size_t room = std::max<std::size_t>(2 * block.rows, 1024);
  block.times.resize(room);
  const bool areTexts = wanted.cells == Wanted::Cells::Texts;
  if (areTexts) block.timeTexts.resize(room);
  for (auto& values : block.values) values.resize(room);
  for (auto& texts : block.texts) texts.resize(room);
}

/// Reads the cells that were asked for from left to right and puts each where it was asked for. `rest` is
/// what is left of the line; nothing once its last cell was taken, which an empty last cell leaves it
/// different from.
void SampleReader::State::takeRow(std::string_view text, SampleBlock& block) {
  const bool isPlain = std::memchr(text.data(), '"', text.size()) == nullptr;
  std::optional<std::string_view> rest = text;
  std::uint32_t column = 1;

  // The number at the front of the row, whose comma is taken with it.
  const auto takeNumber = [&]() -> double {
    const char* const end = rest->data() + rest->size();
    double number = 0;
    const auto [behind, error] = std::from_chars(rest->data(), end, number);
    if (error == std::errc() && (behind == end || *behind == ',')) {
      if (behind == end)
        rest.reset();
      else
        rest = std::string_view(behind + 1, end);
      return number;
    }
    const std::string_view cell = takeCell(rest);
    const auto parsed = parseCell(cell);
    if (!parsed) refuseCell(column, cell);
    return *parsed;
  };
  const auto pass = [&] {
    if (!isPlain) return static_cast<void>(takeCell(rest));
    const void* const comma = std::memchr(rest->data(), ',', rest->size());
    if (comma == nullptr) return rest.reset();
    rest->remove_prefix(static_cast<std::size_t>(static_cast<const char*>(comma) - rest->data()) + 1);
  };

  // A message, and whoever asked for texts, gets the time as it stands there.
  const std::string_view whole = *rest;
  const double time = unit->toSeconds(takeNumber());
  if (!std::isfinite(time)) {
    rest = whole;
    refuseCell(1, takeCell(rest));
  }
  if (time < lastTime) raise("samples:part:TimeDecreases", path, part.text(), line);
  lastTime = time;
  // Times do not decrease: what comes behind the range needs no reading at all.
  if (time < wanted.from) return;
  if (time > wanted.to) {
    isDone = true;
    return;
  }
  makeRoom(block);
  const std::size_t row = block.rows;
  block.times[row] = time;
  const bool areTexts = wanted.cells == Wanted::Cells::Texts;
  if (areTexts) {
    std::optional<std::string_view> first = whole;
    block.timeTexts[row] = takeCell(first);
  }
  column = 2;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::size_t place = order[i].place;
    // The time, or a column that was asked for twice.
    if (order[i].column == 1) {
      if (areTexts)
        block.texts[place][row] = block.timeTexts[row];
      else
        block.values[place][row] = time;
      continue;
    }
    if (order[i].column < column) {
      const std::size_t same = order[i - 1].place;
      if (areTexts)
        block.texts[place][row] = block.texts[same][row];
      else
        block.values[place][row] = block.values[same][row];
      continue;
    }
    for (; column < order[i].column && rest; ++column) pass();
    if (!rest) refuseShortRow();
    if (areTexts)
      block.texts[place][row] = takeCell(rest);
    else
      block.values[place][row] = takeNumber();
    ++column;
  }
  ++block.rows;
}

SampleReader::SampleReader(const opc::model::Package& package, const opc::model::PartName& part,
                           Wanted wanted)
    : state_(std::make_unique<State>(package, part, std::move(wanted))) {
  state_->readHeadings();
}

SampleReader::~SampleReader() = default;
SampleReader::SampleReader(SampleReader&&) noexcept = default;
SampleReader& SampleReader::operator=(SampleReader&&) noexcept = default;

const std::vector<std::string>& SampleReader::headings() const { return state_->headings; }
const tables::TimeUnit& SampleReader::timeUnit() const { return *state_->unit; }

bool SampleReader::next(SampleBlock& block) {
  State& state = *state_;
  const std::size_t columns = state.wanted.columns.size();
  const bool areTexts = state.wanted.cells == Wanted::Cells::Texts;
  block.rows = 0;
  block.values.resize(areTexts ? 0 : columns);
  block.texts.resize(areTexts ? columns : 0);
  // A block ends where the buffer does: texts point into it.
  while (block.rows == 0 && !state.isDone) {
    while (!state.isDone) {
      const auto line = state.nextLine();
      if (!line) break;
      if (!withoutBlanks(*line).empty()) state.takeRow(*line, block);
    }
    if (block.rows == 0 && !state.isDone && !state.readOn() && state.start == state.filled)
      state.isDone = true;
  }
  block.times.resize(block.rows);
  block.timeTexts.resize(areTexts ? block.rows : 0);
  for (auto& values : block.values) values.resize(block.rows);
  for (auto& texts : block.texts) texts.resize(block.rows);
  return block.rows > 0;
}

Span spanOf(SampleReader reader) {
  Span span;
  for (SampleBlock block; reader.next(block); span.rows += block.rows) {
    if (span.rows == 0) span.first = block.times.front();
    span.last = block.times.back();
  }
  return span;
}

}  // namespace tavlox::samples
