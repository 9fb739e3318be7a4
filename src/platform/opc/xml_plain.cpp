#include "platform/opc/xml_plain.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

// A package of many parts has two documents of many megabytes, and both are lists of one kind of element in
// one layout. Half of the time of opening it went into telling apart what such a list never contains:
// references, prefixes, comments, encodings. Here one pass over a tag finds its names and values where they
// stand.
//
// A wrong guess about XML would accept a document that is none. So everything that takes a rule to judge is
// left to the parser, also where the rule is simple: a carriage return, a blank around "=", an end tag of an
// item.

namespace opc::xml {
namespace {

// Fits the processor's second cache together with what is done with the items.
constexpr std::size_t kWindowBytes = std::size_t{64} << 10;
/// More attributes than any list has, and few enough to be compared with each other.
constexpr std::size_t kMostAttributes = 8;

enum : std::uint8_t { kNameStart = 1, kName = 2, kSpace = 4, kValue = 8 };

/// What a byte may be part of. Names have no colon; a value has no reference and nothing that is normalised.
constexpr std::array<std::uint8_t, 256> kClasses = [] {
  std::array<std::uint8_t, 256> classes{};
  for (int c = ' '; c <= '~'; ++c) {
    if (c != '<' && c != '&') classes[c] |= kValue;
  }
  for (int c = 'a'; c <= 'z'; ++c) classes[c] |= kNameStart | kName;
  for (int c = 'A'; c <= 'Z'; ++c) classes[c] |= kNameStart | kName;
  for (int c = '0'; c <= '9'; ++c) classes[c] |= kName;
  classes['_'] |= kNameStart | kName;
  classes['-'] |= kName;
  classes['.'] |= kName;
  for (const char c : {' ', '\t', '\n'}) classes[static_cast<unsigned char>(c)] |= kSpace;
  return classes;
}();

bool is(char byte, std::uint8_t kind) { return (kClasses[static_cast<unsigned char>(byte)] & kind) != 0; }

/// Sixteen bytes at a time. The compiler makes one instruction of each operation where the processor has
/// such, and several where it has not.
using Block = unsigned char __attribute__((vector_size(16)));

/// Which of eight bytes is the first that is not zero; one is.
std::size_t firstByte(std::uint64_t bytes) {
  const int zeros =
      std::endian::native == std::endian::little ? std::countr_zero(bytes) : std::countl_zero(bytes);
  return static_cast<std::size_t>(zeros) / 8;
}

/// The first byte that does not belong to a value in these quotes. Most bytes of a list are passed over here.
const char* endOfValue(const char* at, const char* end, char quote) {
  const auto last = static_cast<unsigned char>(quote);
  for (; end - at >= static_cast<std::ptrdiff_t>(sizeof(Block)); at += sizeof(Block)) {
    Block bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    // What lies below the space wraps around to large numbers.
    const auto ends = (bytes == last) | (bytes == '<') | (bytes == '&') | ((bytes - ' ') > '~' - ' ');
    std::uint64_t halves[2];
    std::memcpy(halves, &ends, sizeof halves);
    if (halves[0] != 0) return at + firstByte(halves[0]);
    if (halves[1] != 0) return at + sizeof halves[0] + firstByte(halves[1]);
  }
  while (at != end && *at != quote && is(*at, kValue)) ++at;
  return at;
}

/// Takes texts off the front of a piece of the document. What is asked for and is not there takes nothing.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

  const char* at() const { return at_; }
  bool take(std::string_view text) {
    if (static_cast<std::size_t>(end_ - at_) < text.size()) return false;
    if (std::memcmp(at_, text.data(), text.size()) != 0) return false;
    at_ += text.size();
    return true;
  }
  bool takeOneOf(std::string_view one, std::string_view other) { return take(one) || take(other); }
  bool takeSpaces() {
    const char* const begin = at_;
    for (; at_ != end_ && is(*at_, kSpace); ++at_) lines_ += *at_ == '\n' ? 1 : 0;
    return at_ != begin;
  }
  /// How many line ends were taken. They are nowhere but between other texts.
  std::size_t lines() const { return lines_; }
  /// Empty if there is none.
  std::string_view takeName() {
    const char* const begin = at_;
    if (at_ == end_ || !is(*at_, kNameStart)) return {};
    while (at_ != end_ && is(*at_, kName)) ++at_;
    return {begin, static_cast<std::size_t>(at_ - begin)};
  }
  /// A text in quotes of either kind.
  std::optional<std::string_view> takeQuoted() {
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) return std::nullopt;
    return takeUpTo(*at_++);
  }
  /// The rest of it, behind its first quote.
  std::optional<std::string_view> takeUpTo(char quote) {
    const char* const begin = at_;
    const char* const past = endOfValue(begin, end_, quote);
    if (past == end_ || *past != quote) return std::nullopt;
    at_ = past + 1;
    return std::string_view(begin, static_cast<std::size_t>(past - begin));
  }

 private:
  const char* at_;
  const char* end_;
  std::size_t lines_ = 0;
};

/// Of the declaration, only what is written in practice; and that says nothing that is not so anyway.
bool takeDeclaration(Cursor& cursor) {
  if (!cursor.take("<?xml")) return true;
  if (!cursor.take(" version=\"1.0\"")) return false;
  cursor.takeOneOf(" encoding=\"UTF-8\"", " encoding=\"utf-8\"");
  cursor.takeOneOf(" standalone=\"yes\"", " standalone=\"no\"");
  return cursor.take("?>");
}

/// The attributes of an item, up to the end of its tag; their number, or nothing.
std::optional<std::size_t> takeAttributes(Cursor& cursor, std::span<Attribute> attributes) {
  std::size_t count = 0;
  for (;;) {
    const bool hasSpace = cursor.takeSpaces();
    if (cursor.take("/>")) return count;
    if (!hasSpace || count == attributes.size()) return std::nullopt;
    const std::string_view name = cursor.takeName();
    // A declaration of a namespace is no attribute.
    if (name.empty() || name == "xmlns" || !cursor.take("=")) return std::nullopt;
    const auto value = cursor.takeQuoted();
    if (!value) return std::nullopt;
    for (const Attribute& other : attributes.first(count)) {
      if (other.local == name) return std::nullopt;
    }
    attributes[count++] = {{}, name, *value};
  }
}

}  // namespace

Window::Window(const Source& source) : source_(&source), buffer_(kWindowBytes) { grow(); }

bool Window::grow() {
  if (source_ == nullptr || rest_.size() == buffer_.size()) return false;
  // What is left moves to the front. It is short: a piece of one item, or nothing.
  if (!rest_.empty()) std::memmove(buffer_.data(), rest_.data(), rest_.size());
  const std::size_t got = (*source_)(buffer_.data() + rest_.size(), buffer_.size() - rest_.size());
  if (got == 0) source_ = nullptr;
  rest_ = {buffer_.data(), rest_.size() + got};
  return true;
}

bool PlainList::read() {
  if (!readOpening()) return false;
  for (;;) {
    if (readAlike() || readItem()) continue;
    if (readEnd()) return true;
    // The item may go on behind the window.
    if (!window_.grow()) return false;
  }
}

bool PlainList::readOpening() {
  Cursor cursor(window_.rest());
  cursor.take("\xEF\xBB\xBF");  // the byte-order mark
  if (!takeDeclaration(cursor)) return false;
  cursor.take("\r\n");
  cursor.takeSpaces();
  if (!cursor.take("<")) return false;
  const std::string_view root = cursor.takeName();
  if (root.empty() || !cursor.take(" xmlns=")) return false;
  const auto space = cursor.takeQuoted();
  // Without a text it declares that there is no namespace; those of XML itself may not be declared.
  if (!space || space->empty() || space->find("www.w3.org") != std::string_view::npos) return false;
  const std::size_t tagBegin = static_cast<std::size_t>(root.data() - 1 - window_.rest().data());
  if (!cursor.take(">")) return false;
  const auto size = static_cast<std::size_t>(cursor.at() - window_.rest().data());
  opening_ = window_.rest().substr(0, size);
  root_ = root;
  space_ = *space;
  window_.take(size);
  handler_.declare({}, space_);
  handler_.start({space_, root_, {}}, Attributes({}), {tagBegin, size});
  return true;
}

bool PlainList::readItem() {
  const std::string_view rest = window_.rest();
  Cursor cursor(rest);
  cursor.takeSpaces();
  const char* const begin = cursor.at();
  if (!cursor.take("<")) return false;
  const std::string_view name = cursor.takeName();
  if (name.empty()) return false;
  std::array<Attribute, kMostAttributes> attributes;
  const auto count = takeAttributes(cursor, attributes);
  if (!count) return false;

  shape_.indent = static_cast<std::size_t>(begin - rest.data());
  shape_.lines = cursor.lines();
  learn({rest.data(), cursor.at()}, name, std::span(attributes).first(*count));
  report(cursor.at());
  return true;
}

void PlainList::learn(std::string_view text, std::string_view name, std::span<const Attribute> attributes) {
  const bool isAlike = name == shape_.name &&
                       std::ranges::equal(attributes, attributes_, {}, &Attribute::local, &Attribute::local);
  std::array<bool, kMostAttributes> differs{};
  // A type stays the same from item to item, a name does not: what has changed once is not expected again.
  for (std::size_t i = 0; isAlike && i < attributes.size(); ++i)
    differs[i] = isGap(i) || attributes[i].value != attributes_[i].value;

  shape_.text = text;
  const auto kept = [&](std::string_view piece) {
    return std::string_view(shape_.text).substr(piece.data() - text.data(), piece.size());
  };
  shape_.name = kept(name);
  shape_.gaps.clear();
  attributes_.clear();
  const char* at = text.data();
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const std::string_view value = attributes[i].value;
    attributes_.push_back({{}, kept(attributes[i].local), kept(value)});
    if (!differs[i]) continue;
    shape_.gaps.push_back({kept({at, value.data()}), i});
    at = value.data() + value.size() + 1;  // behind the second quote
  }
  shape_.end = kept({at, text.data() + text.size()});
}

bool PlainList::isGap(std::size_t attribute) const {
  return std::ranges::find(shape_.gaps, attribute, &Gap::attribute) != shape_.gaps.end();
}

bool PlainList::readAlike() {
  if (shape_.text.empty()) return false;
  Cursor cursor(window_.rest());
  for (const Gap& gap : shape_.gaps) {
    if (!cursor.take(gap.before)) return false;
    const auto value = cursor.takeUpTo(gap.before.back());
    if (!value) return false;
    attributes_[gap.attribute].value = *value;
  }
  if (!cursor.take(shape_.end)) return false;
  report(cursor.at());
  return true;
}

void PlainList::report(const char* end) {
  const auto size = static_cast<std::size_t>(end - window_.rest().data());
  const std::size_t past = window_.offset() + size;
  lines_ += shape_.lines;
  handler_.start({space_, shape_.name, {}}, Attributes(attributes_),
                 {window_.offset() + shape_.indent, past});
  handler_.end({past, past});
  // Last: the texts lie in the window.
  window_.take(size);
}

bool PlainList::readEnd() {
  Cursor cursor(window_.rest());
  cursor.takeSpaces();
  const char* const begin = cursor.at();
  if (!cursor.take("</") || !cursor.take(root_) || !cursor.take(">")) return false;
  const char* const end = cursor.at();
  cursor.takeSpaces();
  const std::string_view rest = window_.rest();
  // The document must end here, and the source must have said so.
  if (cursor.at() != rest.data() + rest.size() || !window_.isAtEnd()) return false;
  const std::size_t offset = window_.offset() + static_cast<std::size_t>(begin - rest.data());
  handler_.end({offset, offset + static_cast<std::size_t>(end - begin)});
  window_.take(rest.size());
  return true;
}

}  // namespace opc::xml
