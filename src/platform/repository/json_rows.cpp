#include "platform/repository/json_rows.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors/exceptions.h"
#include "platform/repository/element_scanner.h"

// A JSON array of any length in constant memory. The text is cut at commas between elements into windows,
// each of which is made an array of its own by putting brackets where its separators were. simdjson parses
// the windows and decides what is well-formed (RFC 8259); the members of each element are then checked
// against the field table.
//
// Where to cut is guessed from the last bytes of a window; a wrong guess leaves a window that is not
// well-formed. Then, and in what is at fault, a scanner that knows no more of JSON than texts and brackets
// finds the commas between the elements, 64 bytes at a time. The scanner may be wrong about text that is not
// JSON, which does no harm: whatever it cuts out is parsed, and every byte of the array lies in some window.
namespace orra {
namespace {

namespace dom = simdjson::dom;

// Large enough that cutting costs little, small enough for the processor's cache.
constexpr std::size_t kWindowBytes = std::size_t{256} * 1024;
constexpr std::size_t kPadding = simdjson::SIMDJSON_PADDING;  // readable bytes that the parser asks for
constexpr char kInvalid[] = "simulation_data_repository:sdr:InvalidSessionData";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kWhitespace = " \t\n\r";

/// What parsing takes of memory.
struct Workspace {
  std::vector<char> buffer = std::vector<char>(kWindowBytes + kPadding);
  dom::parser parser;
};

/// Kept from one part for the next, as a session has many small ones and new memory is slow: the system
/// clears each page when it is first touched.
std::unique_ptr<Workspace> spareWorkspace;

/// Cuts the text of an array into windows. If every window is well-formed then so is the whole text, since
/// windows are joined by the commas they were cut at.
class JsonWindows {
 public:
  struct Window {
    std::string_view text;   ///< "[…]", followed by as much readable memory as the parser asks for
    bool mayBeEmpty;         ///< whether the whole array may be empty
    bool isGuessed = false;  ///< where it ends: if it is not well-formed it has to be cut again
  };

  JsonWindows(const ReadBytes& read, const PartKind& kind, std::vector<char>& buffer)
      : read_(read), kind_(kind), buffer_(buffer) {}

  /// Nothing behind the last window; by then the source was read to its end. A window lasts until the next
  /// call. `elementsBefore` is the number of elements of earlier windows, for errors.
  std::optional<Window> next(std::size_t elementsBefore) {
    elementsBefore_ = elementsBefore;
    if (position_ == Position::BehindArray) {
      requireNothingBehind();
      return std::nullopt;
    }
    if (position_ == Position::BeforeArray) openArray();
    // The separator that the last window was cut at makes room for the bracket of the next.
    std::memmove(buffer_.data(), buffer_.data() + consumed_, filled_ - consumed_);
    filled_ -= consumed_;
    buffer_[0] = '[';
    scanned_ = 1;
    separator_ = separators_ = consumed_ = 0;
    // A window that grew for one large element is not kept that large for the small ones behind it.
    windowBytes_ = kWindowBytes;
    scanner_ = ElementScanner();
    if (guesses_) {
      while (filled_ < windowBytes_ && readOn()) {
      }
      if (const auto window = guess()) return window;
    }
    return search();
  }

  /// The window that was given out last, for which a wrong end was guessed.
  Window cutAgain() {
    // An array that misleads once, with elements like `{"list":[{},{}]}`, would do so in most windows.
    guesses_ = false;
    if (position_ == Position::InArray) buffer_[separator_] = ',';
    position_ = Position::InArray;
    separator_ = consumed_ = 0;
    return search();
  }

 private:
  enum class Position { BeforeArray, InArray, BehindArray };

  /// Reads behind what is there, up to the size of a window, and makes that larger if it is full. It grows in
  /// small steps, so that little is read behind a large element. False at the end of the source.
  bool readOn() {
    if (filled_ == windowBytes_) {
      // The window is full without a separator to cut at, so a single element fills it.
      if (filled_ >= kSessionLimits.elementBytes) {
        raiseInvalid(kind_, elementsBefore_ + 1, "it is larger than 16 MiB");
      }
      // From the start again, because only now its tokens have to be counted: in a small window there is room
      // for as many as it has bytes.
      if (windowBytes_ == kWindowBytes) {
        scanner_ = ElementScanner(kSessionLimits.elementTokens);
        scanned_ = 1;
      }
      windowBytes_ = std::min(windowBytes_ + kWindowBytes, kSessionLimits.elementBytes);
      // Room for the largest element at once, of which only what is filled takes memory. The smaller blocks
      // that growing leaves behind would stay with the process.
      buffer_.reserve(kSessionLimits.elementBytes + kPadding);
      if (buffer_.size() < windowBytes_ + kPadding) buffer_.resize(windowBytes_ + kPadding);
    }
    const std::size_t got = read_(buffer_.data() + filled_, windowBytes_ - filled_);
    filled_ += got;
    return got != 0;
  }

  void openArray() {
    // Sources give as little as they like; the mark is compared when three bytes are there.
    while (filled_ < kByteOrderMark.size() && readOn()) {
    }
    const std::size_t start =
        std::string_view(buffer_.data(), filled_).starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    if (!skipWhitespace(start)) raiseInvalid(kind_, 0, "it is empty");
    if (buffer_[consumed_] != '[') raiseInvalid(kind_, 0, "it is not a JSON array");
    position_ = Position::InArray;
  }

  void requireNothingBehind() {
    if (skipWhitespace(consumed_)) raiseInvalid(kind_, 0, "something follows the array");
  }

  /// Moves `consumed_` to the first byte from `start` on that is no white space. False if there is none.
  bool skipWhitespace(std::size_t start) {
    std::uint64_t passed = 0;
    while (true) {
      const auto at = std::string_view(buffer_.data(), filled_).find_first_not_of(kWhitespace, start);
      if (at != std::string_view::npos) {
        consumed_ = at;
        return true;
      }
      passed += filled_ - start;
      if (passed > kSessionLimits.whitespaceBytes) {
        raiseInvalid(kind_, 0, "it has more than 64 MiB of white space outside its array");
      }
      filled_ = start = 0;  // white space is not kept
      if (!readOn()) return false;
    }
  }

  /// Cuts at the last comma before a brace or, at the end of the source, behind the last bracket. Whether
  /// that lies in a text or in an element is not known before the window is parsed: then a quote or a bracket
  /// is left open. Nothing if there is no such place.
  std::optional<Window> guess() {
    const std::string_view text(buffer_.data(), filled_);
    if (filled_ < windowBytes_) {
      const std::size_t last = text.find_last_not_of(kWhitespace);
      if (text[last] != ']') return std::nullopt;
      position_ = Position::BehindArray;
      consumed_ = last + 1;
      return Window{text.substr(0, consumed_), elementsBefore_ == 0, true};
    }
    // The first byte is the window's bracket, so something stands before each brace.
    for (std::size_t brace = text.rfind('{'); brace != std::string_view::npos;
         brace = text.rfind('{', brace - 1)) {
      const std::size_t before = text.find_last_not_of(kWhitespace, brace - 1);
      if (text[before] == ',') return cutAt(before, true);
    }
    return std::nullopt;
  }

  Window cutAt(std::size_t separator, bool isGuessed) {
    separator_ = consumed_ = separator;
    buffer_[separator] = ']';
    return {{buffer_.data(), separator + 1}, false, isGuessed};
  }

  /// The window up to a separator, or to the end of the array, that the scanner finds.
  Window search() {
    while (true) {
      if (const auto window = cut()) return *window;
      if (!readOn()) raiseInvalid(kind_, 0, "it ends before its array does");
    }
  }

  /// Scans what is there. Gives the window up to the end of the array, or up to the last separator if the
  /// buffer is full.
  std::optional<Window> cut() {
    const std::size_t start = scanned_;
    const auto [found, offset] =
        scanner_.scan({buffer_.data() + start, filled_ - start}, [this, start](std::size_t separator) {
          separator_ = start + separator;
          ++separators_;
        });
    scanned_ = start + offset;

    if (found == ElementScanner::Found::TooDeep) {
      raiseInvalid(kind_, elementsBefore_ + separators_ + 1, "it is nested more than 128 levels deep");
    }
    if (found == ElementScanner::Found::TooMany) {
      raiseInvalid(kind_, elementsBefore_ + 1, "it has more than 1,048,576 values, separators and brackets");
    }
    if (found == ElementScanner::Found::End) {
      position_ = Position::BehindArray;
      consumed_ = scanned_;
      return Window{{buffer_.data(), scanned_}, elementsBefore_ == 0};
    }
    // Before the buffer is full more elements fit into this window; without a separator it cannot be cut.
    if (filled_ < windowBytes_ || separator_ == 0) return std::nullopt;
    return cutAt(separator_, false);
  }

  const ReadBytes& read_;
  const PartKind& kind_;
  ElementScanner scanner_;
  Position position_ = Position::BeforeArray;
  std::vector<char>& buffer_;
  std::size_t windowBytes_ = kWindowBytes;
  // Within the buffer: the window starts at 0 with its bracket, is scanned up to `scanned_`, filled up to
  // `filled_`, and the last separator lies at `separator_` (0 for none).
  std::size_t scanned_ = 0, filled_ = 0, separator_ = 0;
  std::size_t separators_ = 0;  ///< found in this window so far
  std::size_t consumed_ = 0;    ///< bytes of the window that was given out last
  std::size_t elementsBefore_ = 0;
  bool guesses_ = true;
};

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

/// The parser's code for this processor, chosen when the library is loaded: for want of memory simdjson would
/// end the process, later as well.
[[maybe_unused]] const std::string kChosen = simdjson::get_active_implementation()->name();

/// What came of parsing one element, or the error that it stands for.
dom::element elementOf(const PartKind& kind, std::size_t number,
                       simdjson::simdjson_result<dom::element> parsed) {
  if (parsed.error() == simdjson::MEMALLOC) throw std::bad_alloc();
  if (parsed.error()) raiseInvalid(kind, number, describe(parsed.error()));
  return parsed.value_unsafe();
}

/// Cuts and parses windows in the memory of a workspace.
class WindowParser {
 public:
  using Parsed = simdjson::simdjson_result<dom::element>;
  struct Window {
    std::string_view text;
    std::optional<dom::array> elements;  ///< nothing if it is not well-formed
  };

  WindowParser(const ReadBytes& read, const PartKind& kind, Workspace& workspace)
      : windows_(read, kind, workspace.buffer), parser_(workspace.parser) {}

  /// As JsonWindows::next. The elements are valid until the next call.
  std::optional<Window> next(std::size_t elementsBefore) {
    auto window = windows_.next(elementsBefore);
    if (!window) return std::nullopt;
    auto elements = parse(*window);
    if (!elements && window->isGuessed) {
      window = windows_.cutAgain();
      elements = parse(*window);
    }
    return Window{window->text, elements};
  }
  /// Parses a window that is not well-formed element by element. `visit` is given the number of each, from
  /// `number` on, and what came of it, which is an error at least once. Gives the number behind the last.
  template <class Visit>
  std::size_t forEachElement(std::string_view window, std::size_t number, const Visit& visit) {
    std::size_t start = 1;
    bool isSound = true;
    const auto parseUpTo = [&](std::size_t end) {
      // In place: a separator or a bracket follows, which the parser is used to find behind an element.
      const Parsed parsed = parseText(window.substr(start, end - start));
      start = end + 1;
      isSound = isSound && !parsed.error();
      visit(number++, parsed);
    };
    const auto [found, offset] =
        ElementScanner().scan(window.substr(1), [&](std::size_t separator) { parseUpTo(1 + separator); });
    parseUpTo(1 + offset - (found == ElementScanner::Found::Nothing ? 0 : 1));
    // The elements are sound, what closes them is not.
    if (isSound) visit(number - 1, Parsed(simdjson::TAPE_ERROR));
    return number;
  }

 private:
  std::optional<dom::array> parse(const JsonWindows::Window& window) {
    dom::array elements;
    // The parser passes over brackets with nothing between them, which the scanner counts as a level: a
    // window that it has not seen gets one level less.
    const int levels = kSessionLimits.nesting + (window.isGuessed ? 0 : 1);
    const auto failure = parseText(window.text, levels).get(elements);
    // Not to be tried again: what the parser has of its memory by now it takes for all of it.
    if (failure == simdjson::MEMALLOC) throw std::bad_alloc();
    if (failure != simdjson::SUCCESS) return std::nullopt;
    // Cut behind a comma, after which there has to be an element.
    if (elements.begin() == elements.end() && !window.mayBeEmpty) return std::nullopt;
    return elements;
  }

  Parsed parseText(std::string_view padded, std::size_t levels = kSessionLimits.nesting + 1) {
    constexpr bool kCopy = false;
    // Grown by hand, since parsing would otherwise fix the depth at the parser's default.
    if (padded.size() > parser_.capacity() || levels != parser_.max_depth()) {
      const std::size_t capacity = std::max(padded.size(), parser_.capacity());
      if (const auto failure = parser_.allocate(capacity, levels)) return failure;
    }
    return parser_.parse(padded.data(), padded.size(), kCopy);
  }

  JsonWindows windows_;
  dom::parser& parser_;
};

/// The element that is checked, for errors.
struct Element {
  const PartKind& kind;
  std::size_t number;

  [[noreturn]] void refuse(std::string_view member, std::string_view what) const {
    raiseInvalid(kind, number, "\"" + std::string(member) + "\" " + std::string(what));
  }
};

template <class Integer>
bool isInteger(const dom::element& json) {
  std::int64_t number;
  if (json.type() != dom::element_type::INT64 || json.get(number) != simdjson::SUCCESS) return false;
  return number >= std::numeric_limits<Integer>::min() && number <= std::numeric_limits<Integer>::max();
}

bool isUnsignedList(const dom::element& json) {
  dom::array list;
  if (json.get(list) != simdjson::SUCCESS) return false;
  return std::all_of(list.begin(), list.end(), [](const dom::element& number) { return number.is_uint64(); });
}

inline bool isText(const dom::element& json) {
  return json.type() == dom::element_type::STRING &&
         json.get_string_length().value_unsafe() <= kSessionLimits.memberBytes;
}

void requireText(std::string_view name, const dom::element& json, const Element& element) {
  if (isText(json)) return;
  element.refuse(name, json.is_string() ? "is larger than 1 MiB" : "must be a text");
}

void requireMetadata(const dom::element& json, const Element& element) {
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) element.refuse("metadata", "must be an object");
  MemberLookup lookup(kMetadataMembers);
  std::array<bool, std::size(kMetadataMembers)> seen{};
  for (const auto& [key, value] : object) {
    const auto index = lookup.find(key);
    if (!index) continue;
    // RFC 8259 leaves the meaning of repeated names open; taking one of them would be a guess.
    const bool isRepeated = std::exchange(seen[*index], true);
    if (!isRepeated && isText(value)) continue;
    const std::string name = "metadata." + std::string(key);
    if (isRepeated) element.refuse(name, "stands there twice");
    requireText(name, value, element);
  }
}

// Not inlined into the loop over members, which is faster without: most are texts, checked there.
[[gnu::noinline]] void requireKind(const Member& member, const dom::element& json, const Element& element) {
  switch (member.kind) {
    case FieldKind::Int32:
      if (!isInteger<std::int32_t>(json)) element.refuse(member.name, "must be an integer of 32 bits");
      return;
    case FieldKind::UInt32:
      if (!isInteger<std::uint32_t>(json)) {
        element.refuse(member.name, "must be an unsigned integer of 32 bits");
      }
      return;
    case FieldKind::Number:
      if (!json.is_number()) element.refuse(member.name, "must be a number");
      return;
    case FieldKind::Text:
      requireText(member.name, json, element);
      return;
    case FieldKind::UInt64List:
      if (!isUnsignedList(json)) element.refuse(member.name, "must be a list of unsigned integers");
      if (json.get_array().size() > kSessionLimits.memberBytes / sizeof(std::uint64_t)) {
        element.refuse(member.name, "is larger than 1 MiB");
      }
      return;
    case FieldKind::Metadata:
      requireMetadata(json, element);
  }
}

}  // namespace

foundation::core::except::except_with_causes invalid(const PartKind& kind, std::size_t element,
                                                     std::string_view what) {
  using foundation::core::except::toArgument;
  constexpr fl::i18n::MessageId<3> kIdentifier(kInvalid);
  return foundation::core::except::except_with_causes(
      kIdentifier, {toArgument(kind.name), toArgument(element), toArgument(what)});
}

void raiseInvalid(const PartKind& kind, std::size_t element, std::string_view what) {
  throw invalid(kind, element, what);
}

void Row::take(std::size_t number, dom::element json) {
  const Element element{kind_, number};
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) raiseInvalid(kind_, number, "it is not an object");
  present_ = 0;
  for (auto field = object.begin(), end = object.end(); field != end; ++field) {
    const auto index = lookup_.find(field.key());
    // Later versions may add members: what is not known is ignored, and only checked for being JSON.
    if (!index) continue;
    const std::uint32_t bit = std::uint32_t{1} << *index;
    if ((present_ & bit) != 0) element.refuse(field.key(), "stands there twice");
    values_[*index] = field.value();
    const Member& member = kind_.members[*index];
    if (member.kind != FieldKind::Text || !isText(values_[*index])) {
      requireKind(member, values_[*index], element);
    }
    present_ |= bit;
  }
  if ((present_ & 1) == 0) element.refuse(strings::IDLower, "is missing");
}

std::int32_t Row::integer(std::size_t member) const {
  return static_cast<std::int32_t>(values_[member].get_int64().value());
}

void forEachRow(const ReadBytes& read, const PartKind& kind, const RowVisitor& visitRow) {
  auto workspace = spareWorkspace ? std::move(spareWorkspace) : std::make_unique<Workspace>();
  WindowParser parser(read, kind, *workspace);
  Row row(kind);
  std::size_t index = 0;
  // The index goes on over the windows, since errors name an element by its position in the whole array.
  while (const auto window = parser.next(index)) {
    if (!window->elements) {
      // Raises for the first that is at fault.
      parser.forEachElement(window->text, index + 1,
                            [&](std::size_t number, const auto& parsed) { elementOf(kind, number, parsed); });
    }
    for (const dom::element element : *window->elements) {
      row.take(index + 1, element);
      visitRow(index++, row);
    }
  }
  // Not one that a large element made grow.
  if (workspace->buffer.size() == kWindowBytes + kPadding) spareWorkspace = std::move(workspace);
}

void auditRows(const ReadBytes& read, const PartKind& kind, const RowVisitor& visitRow,
               const FaultVisitor& tell) {
  const auto audited = [&](const auto& step) {
    try {
      step();
    } catch (const foundation::core::except::except_with_causes& fault) {
      // A file that cannot be read is no fault of its elements.
      if (fault.GetID() != kInvalid) throw;
      tell(fault);
    }
  };
  Workspace workspace;
  WindowParser parser(read, kind, workspace);
  Row row(kind);
  std::size_t number = 1;
  const auto visit = [&](std::size_t at, const simdjson::simdjson_result<dom::element>& parsed) {
    audited([&] {
      row.take(at, elementOf(kind, at, parsed));
      visitRow(at - 1, row);
    });
  };
  // Outside of the loop: where one window cannot be cut off there is no next one.
  audited([&] {
    while (const auto window = parser.next(number - 1)) {
      if (window->elements) {
        for (const dom::element element : *window->elements) visit(number++, dom::element(element));
      } else {
        number = parser.forEachElement(window->text, number, visit);
      }
    }
  });
}

}  // namespace orra
