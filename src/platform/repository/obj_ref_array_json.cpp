#include "platform/repository/obj_ref_array_json.h"

#include <algorithm>
#include <istream>
#include <optional>
#include <unordered_map>
#include <utility>

#include <simdjson.h>

#include "platform/files/filesystem.h"
#include "platform/repository/json_windows.h"
#include "platform/repository/members.h"
#include "platform/repository/session_data_error.h"
#include "platform/repository/strings.h"
#include "platform/text/conversion.h"
#include "platform/zip/spool.h"

namespace orra {
namespace {

namespace dom = simdjson::dom;
using foundation::core::except::raise;

constexpr char kDefaultClass[] = "Set";
constexpr std::size_t kId = 0, kClassName = 1;  // members of a run
constexpr std::size_t kNoIndex = static_cast<std::size_t>(-1);

const char* describe(simdjson::error_code code) {
  switch (code) {
    case simdjson::UTF8_ERROR:
      return "it is not well-formed UTF-8";
    case simdjson::NUMBER_ERROR:
      return "it has a number that is malformed or too large";
    case simdjson::STRING_ERROR:
    case simdjson::UNESCAPED_CHARS:
    case simdjson::UNCLOSED_STRING:
      return "it has a malformed text";
    case simdjson::MEMALLOC:
      return "there is not enough memory for it";
    default:
      return "it is not well-formed JSON";
  }
}

/// Parses windows, reusing one parser's memory.
class WindowParser {
 public:
  explicit WindowParser(std::string_view kind) : kind_(kind) {}

  /// The elements, valid until the next call.
  dom::array parse(const JsonWindows::Window& window, std::size_t elementsBefore) {
    dom::array elements;
    if (parseText(window.text).get(elements) != simdjson::SUCCESS) refuse(window.text, elementsBefore);
    if (elements.begin() == elements.end() && !window.mayBeEmpty) {
      raiseInvalid(kind_, elementsBefore + 1, "it is missing behind a comma");
    }
    return elements;
  }

 private:
  simdjson::simdjson_result<dom::element> parseText(std::string_view padded) {
    constexpr bool kCopy = false;
    if (padded.size() > parser_.capacity()) {
      if (const auto failure = parser_.allocate(padded.size(), kMaximalDepth + 1)) return failure;
    }
    return parser_.parse(padded.data(), padded.size(), kCopy);
  }

  /// Parses element by element to find the one at fault.
  [[noreturn]] void refuse(std::string_view window, std::size_t element) {
    ElementScanner scanner;
    const char* at = window.data() + 1;
    const char* const end = window.data() + window.size();
    for (auto found = ElementScanner::Found::Separator; found == ElementScanner::Found::Separator;) {
      const char* const start = at;
      found = scanner.advance(at, end);
      const bool delimited = found != ElementScanner::Found::Nothing;
      const std::string_view text(start, static_cast<std::size_t>(at - start) - (delimited ? 1 : 0));
      const simdjson::padded_string copy(text);
      ++element;
      if (const auto failure = parser_.parse(copy).error()) raiseInvalid(kind_, element, describe(failure));
    }
    raiseInvalid(kind_, element,
                 describe(simdjson::TAPE_ERROR));  // the elements are sound, what closes them is not
  }

  std::string_view kind_;
  dom::parser parser_;
};

using WindowVisitor = std::function<void(std::string_view)>;

/// Visits every window's text, then its rows.
void forEachRowOf(ReadBytes read, std::string_view kind, const WindowVisitor& visitWindow,
                  const ObjRefArrayJSON::RowVisitor& visitRow) {
  JsonWindows windows(std::move(read), kind);
  WindowParser parser(kind);
  std::size_t index = 0;
  while (const auto window = windows.next(index)) {
    visitWindow(window->text);
    for (const dom::element element : parser.parse(*window, index)) {
      visitRow(index, Row(kind, index + 1, element));
      ++index;
    }
  }
}

}  // namespace

struct ObjRefArrayJSON::References {
  std::vector<std::int32_t> ids;
  bool idsAscend = true;
  std::vector<std::string> classNames;
  std::unordered_map<std::string, std::uint32_t> classes;  ///< name to place in classNames
  std::vector<std::uint32_t> classOf;  ///< by element, as far as one has another than the default

  void add(const Row& row, bool hasClassNames) {
    const auto id = static_cast<std::int32_t>(row[kId]->get_int64().value());
    idsAscend = idsAscend && (ids.empty() || ids.back() < id);
    if (hasClassNames) addClass(row[kClassName] ? row[kClassName]->get_string().value() : kDefaultClass);
    ids.push_back(id);
  }

  void addClass(std::string_view name) {
    const auto [entry, isNew] =
        classes.try_emplace(std::string(name), static_cast<std::uint32_t>(classNames.size()));
    if (isNew) classNames.emplace_back(name);
    classOf.push_back(entry->second);
  }

  /// The index of the first element whose `id` an earlier one has.
  std::optional<std::size_t> firstRepeated() const {
    if (idsAscend) return std::nullopt;
    std::vector<std::pair<std::int32_t, std::size_t>> sorted;
    sorted.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) sorted.emplace_back(ids[i], i);
    std::sort(sorted.begin(), sorted.end());
    std::size_t first = kNoIndex;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      if (sorted[i - 1].first == sorted[i].first) first = std::min(first, sorted[i].second);
    }
    if (first == kNoIndex) return std::nullopt;
    return first;
  }
};

struct ObjRefArrayJSON::Text {
  zip::Spool spool{fl::i18n::to_string(fl::filesystem::temp_directory_path())};
  bool empty = true;

  /// Windows become one array again.
  void add(std::string_view window) {
    if (!empty) spool.write(",", 1);
    spool.write(window.data() + (empty ? 0 : 1), window.size() - (empty ? 1 : 2));
    empty = false;
  }
  void finish() {
    spool.write("]", 1);
    spool.finish();
  }
};

ObjRefArrayJSON::ObjRefArrayJSON(std::string_view kind, Keep keep)
    : kind_(kind), keep_(keep), references_(std::make_unique<References>()) {}
ObjRefArrayJSON::~ObjRefArrayJSON() = default;
ObjRefArrayJSON::ObjRefArrayJSON(ObjRefArrayJSON&&) noexcept = default;
ObjRefArrayJSON& ObjRefArrayJSON::operator=(ObjRefArrayJSON&&) noexcept = default;

void ObjRefArrayJSON::load(std::istream& stream) {
  load(stream, [](std::size_t, const Row&) {});
}

void ObjRefArrayJSON::load(std::istream& stream, const RowVisitor& visit) {
  // Straight from the buffer: the stream itself would swallow the errors of what it reads from.
  std::streambuf* const source = stream.rdbuf();
  const auto read = [source](char* into, std::size_t count) -> std::size_t {
    return static_cast<std::size_t>(source->sgetn(into, static_cast<std::streamsize>(count)));
  };
  auto references = std::make_unique<References>();
  auto text = keep_ == Keep::Rows ? std::make_unique<Text>() : nullptr;
  const bool hasClassNames = kind_ == kRunListKind;
  forEachRowOf(
      read, kind_,
      [&](std::string_view window) {
        if (text) text->add(window);
      },
      [&](std::size_t index, const Row& row) {
        references->add(row, hasClassNames);
        visit(index, row);
      });
  if (const auto repeated = references->firstRepeated()) {
    raiseInvalid(kind_, *repeated + 1, "an earlier element has its \"id\"");
  }
  if (text) text->finish();
  references_ = std::move(references);
  text_ = std::move(text);
}

std::size_t ObjRefArrayJSON::size() const { return references_->ids.size(); }

std::int32_t ObjRefArrayJSON::getPropertyInt32(std::size_t index, std::string_view name) const {
  if (name != strings::IDLower || index >= size()) raise("simulation_data_repository:sdr:InternalError");
  return references_->ids[index];
}

std::string ObjRefArrayJSON::getPropertyString(std::size_t index, std::string_view name) const {
  if (name != strings::RunClassName || index >= size()) raise("simulation_data_repository:sdr:InternalError");
  if (references_->classOf.empty()) return kDefaultClass;
  return references_->classNames[references_->classOf[index]];
}

void ObjRefArrayJSON::forEachRow(const RowVisitor& visit) const {
  if (text_ == nullptr) raise("simulation_data_repository:sdr:InternalError");
  zip::Spool::Reader reader(text_->spool);
  forEachRowOf([&](char* into, std::size_t count) { return reader.read(into, count); }, kind_,
               [](std::string_view) {}, visit);
}

}  // namespace orra
