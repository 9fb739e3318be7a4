#include "platform/repository/json_rows.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors/exceptions.h"

namespace orra {
namespace {

namespace dom = simdjson::dom;

/// Levels of nesting that a part may have, its array included.
constexpr int kMaximalDepth = 128;
constexpr std::size_t kWindowBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaximalElementBytes = std::size_t{256} * 1024 * 1024;
constexpr std::size_t kPadding = simdjson::SIMDJSON_PADDING;  // readable bytes that the parser asks for
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kWhitespace = " \t\n\r";

/// Whether a byte outside of texts matters to the nesting. Most do not; one look into this table passes them.
constexpr auto kMatters = [] {
  std::array<bool, 256> matters{};
  for (const unsigned char c : {'"', ',', '{', '}', '[', ']'}) matters[c] = true;
  return matters;
}();

/// Finds where the elements of a JSON array end, without checking anything else: it knows texts, their
/// escapes and the nesting. Starts behind the array's opening bracket and takes the text in pieces of any
/// size.
class ElementScanner {
 public:
  enum class Found {
    Nothing,    ///< the piece ends first
    Separator,  ///< the comma between two elements
    End,        ///< a closing bracket of the array's own level
    TooDeep,    ///< an element is nested deeper than allowed
  };

  /// Moves `at` past what was found, or to `end`.
  Found advance(const char*& at, const char* end) {
    while (true) {
      if (inText_ && !skipText(at, end)) return Found::Nothing;
      inText_ = false;
      while (at != end && !kMatters[static_cast<unsigned char>(*at)]) ++at;
      if (at == end) return Found::Nothing;
      switch (*at++) {
        case '"':
          inText_ = true;
          break;
        case ',':
          if (depth_ == 0) return Found::Separator;
          break;
        case '{':
        case '[':
          // The array itself is the first level.
          if (++depth_ >= kMaximalDepth) return Found::TooDeep;
          break;
        default:
          if (depth_-- == 0) return Found::End;
      }
    }
  }

 private:
  /// Whether the text ended within the piece.
  bool skipText(const char*& at, const char* end) {
    while (at != end) {
      const char c = *at++;
      if (escaped_) {
        escaped_ = false;
      } else if (c == '\\') {
        escaped_ = true;
      } else if (c == '"') {
        return true;
      }
    }
    return false;
  }

  int depth_ = 0;
  bool inText_ = false;
  bool escaped_ = false;
};

/// Cuts the text of an array into windows. If every window is well-formed then so is the whole text, since
/// windows are joined by the commas they were cut at.
class JsonWindows {
 public:
  struct Window {
    std::string_view text;  ///< "[…]", followed by as much readable memory as the parser asks for
    bool mayBeEmpty;        ///< whether the whole array may be empty
  };

  JsonWindows(const ReadBytes& read, const PartKind& kind)
      : read_(read), kind_(kind), buffer_(kWindowBytes + kPadding) {}

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
    scanner_ = ElementScanner();
    while (true) {
      if (auto window = cut()) {
        first_ = false;
        return window;
      }
      if (!readOn()) raiseInvalid(kind_, 0, "it ends before its array does");
    }
  }

 private:
  enum class Position { BeforeArray, InArray, BehindArray };

  /// Reads behind what is there, in a larger buffer if the current one is full. False at the end of the
  /// source.
  bool readOn() {
    std::size_t room = buffer_.size() - kPadding - filled_;
    if (room == 0) {
      if (filled_ >= kMaximalElementBytes) {
        raiseInvalid(kind_, elementsBefore_ + 1, "it is larger than 256 MiB");
      }
      buffer_.resize(2 * filled_ + kPadding);
      room = filled_;
    }
    const std::size_t got = read_(buffer_.data() + filled_, room);
    filled_ += got;
    return got != 0;
  }

  void openArray() {
    while (filled_ < kByteOrderMark.size() && readOn()) {
    }
    std::size_t skipped =
        std::string_view(buffer_.data(), filled_).starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    std::size_t bracket;
    while ((bracket = std::string_view(buffer_.data(), filled_).find_first_not_of(kWhitespace, skipped)) ==
           std::string_view::npos) {
      filled_ = skipped = 0;  // white space is not kept, however much there is
      if (!readOn()) raiseInvalid(kind_, 0, "it is empty");
    }
    if (buffer_[bracket] != '[') raiseInvalid(kind_, 0, "it is not a JSON array");
    consumed_ = bracket;
    position_ = Position::InArray;
  }

  void requireNothingBehind() {
    std::size_t from = consumed_;
    do {
      const std::string_view rest(buffer_.data() + from, filled_ - from);
      if (rest.find_first_not_of(kWhitespace) != std::string_view::npos) {
        raiseInvalid(kind_, 0, "something follows the array");
      }
      from = filled_ = 0;
    } while (readOn());
  }

  /// Scans what is there. Gives the window up to the end of the array, or up to the last separator if the
  /// buffer is full.
  std::optional<Window> cut() {
    const char* at = buffer_.data() + scanned_;
    const char* const end = buffer_.data() + filled_;
    auto found = scanner_.advance(at, end);
    for (; found == ElementScanner::Found::Separator; found = scanner_.advance(at, end)) {
      separator_ = static_cast<std::size_t>(at - buffer_.data()) - 1;
      ++separators_;
    }
    scanned_ = static_cast<std::size_t>(at - buffer_.data());

    if (found == ElementScanner::Found::TooDeep) {
      raiseInvalid(kind_, elementsBefore_ + separators_ + 1, "it is nested more than 128 levels deep");
    }
    if (found == ElementScanner::Found::End) {
      position_ = Position::BehindArray;
      consumed_ = scanned_;
      return Window{{buffer_.data(), scanned_}, first_};
    }
    const bool full = filled_ + kPadding == buffer_.size();
    if (!full || separator_ == 0) return std::nullopt;
    buffer_[separator_] = ']';
    consumed_ = separator_;
    return Window{{buffer_.data(), separator_ + 1}, false};
  }

  const ReadBytes& read_;
  const PartKind& kind_;
  ElementScanner scanner_;
  Position position_ = Position::BeforeArray;
  std::vector<char> buffer_;
  // Within the buffer: the window starts at 0 with its bracket, is scanned up to `scanned_`, filled up to
  // `filled_`, and the last separator lies at `separator_` (0 for none).
  std::size_t scanned_ = 0, filled_ = 0, separator_ = 0;
  std::size_t separators_ = 0;  ///< found in this window so far
  std::size_t consumed_ = 0;    ///< bytes of the window that was given out last
  std::size_t elementsBefore_ = 0;
  bool first_ = true;
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

/// Parses windows, reusing one parser's memory.
class WindowParser {
 public:
  explicit WindowParser(const PartKind& kind) : kind_(kind) {}

  /// The elements, valid until the next call.
  dom::array parse(const JsonWindows::Window& window, std::size_t elementsBefore) {
    dom::array elements;
    const auto failure = parseText(window.text).get(elements);
    // Not to be tried again: what the parser has of its memory by now it takes for all of it.
    if (failure == simdjson::MEMALLOC) throw std::bad_alloc();
    if (failure != simdjson::SUCCESS) refuse(window.text, elementsBefore);
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
    // The elements are sound, what closes them is not.
    raiseInvalid(kind_, element, describe(simdjson::TAPE_ERROR));
  }

  const PartKind& kind_;
  dom::parser parser_;
};

/// Finds members by name. Elements of one part mostly keep one order, so the search goes on from the last
/// hit.
class MemberLookup {
 public:
  explicit MemberLookup(std::span<const Member> members) : members_(members) {}

  std::optional<std::size_t> find(std::string_view name) {
    for (std::size_t tried = 0; tried < members_.size(); ++tried) {
      const std::size_t index = (next_ + tried) % members_.size();
      if (members_[index].name != name) continue;
      next_ = index + 1;
      return index;
    }
    return std::nullopt;
  }

 private:
  std::span<const Member> members_;
  std::size_t next_ = 0;
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

void requireMetadata(const dom::element& json, const Element& element) {
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) element.refuse("metadata", "must be an object");
  MemberLookup lookup(kMetadataMembers);
  std::array<bool, std::size(kMetadataMembers)> seen{};
  for (const auto& [key, value] : object) {
    const auto index = lookup.find(key);
    if (!index) continue;
    const std::string name = "metadata." + std::string(key);
    if (std::exchange(seen[*index], true)) element.refuse(name, "stands there twice");
    if (!value.is_string()) element.refuse(name, "must be a text");
  }
}

void requireKind(const Member& member, const dom::element& json, const Element& element) {
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
      if (!json.is_string()) element.refuse(member.name, "must be a text");
      return;
    case FieldKind::UInt64List:
      if (!isUnsignedList(json)) element.refuse(member.name, "must be a list of unsigned integers");
      return;
    case FieldKind::Metadata:
      requireMetadata(json, element);
  }
}

}  // namespace

void raiseInvalid(const PartKind& kind, std::size_t element, std::string_view what) {
  foundation::core::except::raise("simulation_data_repository:sdr:InvalidSessionData", kind.name, element,
                                  what);
}

Row::Row(const PartKind& kind, std::size_t number, dom::element json) {
  const Element element{kind, number};
  dom::object object;
  if (json.get(object) != simdjson::SUCCESS) raiseInvalid(kind, number, "it is not an object");
  MemberLookup lookup(kind.members);
  for (const auto& [key, value] : object) {
    const auto index = lookup.find(key);
    if (!index) continue;
    if (values_[*index]) element.refuse(key, "stands there twice");
    requireKind(kind.members[*index], value, element);
    values_[*index] = value;
  }
  if (!values_[0]) element.refuse(strings::IDLower, "is missing");
}

std::int32_t Row::integer(std::size_t member) const {
  return static_cast<std::int32_t>(values_[member]->get_int64().value());
}

void forEachRow(const ReadBytes& read, const PartKind& kind,
                const std::function<void(std::string_view)>& visitWindow,
                const std::function<void(std::size_t, const Row&)>& visitRow) {
  JsonWindows windows(read, kind);
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

}  // namespace orra
