// Three steps: the text becomes words, the words by recursive descent a tree, and the tree is either walked
// for each record or written as SQL once.
#include "platform/filter/filter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"
#include "platform/text/glob.h"
#include "platform/text/suggestion.h"

namespace tavlox::filter {
namespace {

using fl::i18n::to_string_lossy;
using foundation::core::except::raise;
using Node = Filter::Node;
using Operation = Filter::Operation;

// SQLite refuses expressions deeper than 1000, and more than 32766 values; both are far beyond what people
// write.
constexpr std::size_t kMostConditions = 500, kMostValues = 10'000;
constexpr int kDeepestNesting = 100;

struct Word {
  enum class Kind { Name, Text, Number, Sign, End } kind;
  std::u16string text;  ///< of a text what stands between the quotes
  double number = 0;
};

bool isBlank(char16_t unit) { return unit == u' ' || (unit >= u'\t' && unit <= u'\r'); }
bool isDigit(char16_t unit) { return unit >= u'0' && unit <= u'9'; }
bool isOfName(char16_t unit) {
  return isDigit(unit) || unit == u'_' || unit >= 0x80 || (unit >= u'a' && unit <= u'z') ||
         (unit >= u'A' && unit <= u'Z');
}

/// Whether a word of the language stands there, in any case.
bool isKeyword(const Word& word, std::u16string_view keyword) {
  return word.kind == Word::Kind::Name && std::ranges::equal(word.text, keyword, {}, [](char16_t unit) {
           return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
         });
}

/// Takes a condition apart, word by word.
class Words {
 public:
  explicit Words(std::u16string_view text) : text_(text) {}

  Word next() {
    while (!text_.empty() && isBlank(text_.front())) text_.remove_prefix(1);
    if (text_.empty()) return {Word::Kind::End, u""};
    const char16_t first = text_.front();
    if (first == u'\'' || first == u'"') return quoted(first);
    if (std::u16string_view(u"+-.0123456789").find(first) != text_.npos) return number();
    if (isOfName(first)) return {Word::Kind::Name, take(std::ranges::find_if_not(text_, isOfName))};
    const bool isPair =
        text_.size() > 1 && text_[1] == u'=' && (first == u'!' || first == u'<' || first == u'>');
    return {Word::Kind::Sign, take(text_.begin() + (isPair ? 2 : 1))};
  }

 private:
  std::u16string take(std::u16string_view::iterator end) {
    std::u16string word(text_.begin(), end);
    text_.remove_prefix(word.size());
    return word;
  }

  Word quoted(char16_t quote) {
    std::u16string text;
    for (std::size_t at = 1; at < text_.size(); ++at) {
      const bool isQuote = text_[at] == quote;
      if (isQuote && (at + 1 == text_.size() || text_[at + 1] != quote)) {
        text_.remove_prefix(at + 1);
        return {Word::Kind::Text, text};
      }
      at += isQuote ? 1 : 0;
      text += text_[at];
    }
    raise("filter:where:OpenQuote", text_);
  }

  Word number() {
    // Signs belong to a number at its beginning and behind the letter of its exponent.
    const auto isOfNumber = [previous = u'e'](char16_t unit) mutable {
      const bool isSign = unit == u'+' || unit == u'-';
      const bool belongs = isSign ? previous == u'e' || previous == u'E' : unit == u'.' || isOfName(unit);
      previous = unit;
      return belongs;
    };
    const std::u16string word = take(std::find_if_not(text_.begin(), text_.end(), isOfNumber));
    const auto value = numberOf(to_string_lossy(word));
    if (!value) raise("filter:where:NotANumber", word);
    return {Word::Kind::Number, word, *value};
  }

  std::u16string_view text_;
};

class Parser {
 public:
  Parser(std::u16string_view text, std::span<const Field> fields) : words_(text), fields_(fields) {
    advance();
  }

  Node parse() {
    Node root = alternatives();
    if (word_.kind != Word::Kind::End) refuse(u"and, or, or the end");
    return root;
  }

 private:
  void advance() { word_ = words_.next(); }

  [[noreturn]] void refuse(std::u16string_view wanted) const {
    const std::u16string found = word_.kind == Word::Kind::End ? u"the end" : u"\"" + word_.text + u"\"";
    raise("filter:where:Unexpected", found, wanted);
  }

  bool accept(std::u16string_view keyword) {
    if (!isKeyword(word_, keyword)) return false;
    advance();
    return true;
  }
  bool acceptSign(std::u16string_view sign) {
    if (word_.kind != Word::Kind::Sign || word_.text != sign) return false;
    advance();
    return true;
  }

  Node joined(Operation operation, std::u16string_view keyword, Node (Parser::*operand)()) {
    Node first = (this->*operand)();
    if (!isKeyword(word_, keyword)) return first;
    Node node{operation, {std::move(first)}};
    while (accept(keyword)) node.operands.push_back((this->*operand)());
    return node;
  }
  Node alternatives() { return joined(Operation::Or, u"or", &Parser::conjunction); }
  Node conjunction() { return joined(Operation::And, u"and", &Parser::condition); }

  static Node negated(Node node, bool isNegated) {
    return isNegated ? Node{Operation::Not, {std::move(node)}} : node;
  }

  Node condition() {
    if (++depth_ > kDeepestNesting) raise("filter:where:TooLong");
    Node node = conditionInside();
    --depth_;
    return node;
  }

  Node conditionInside() {
    if (accept(u"not")) return negated(condition(), true);
    if (!acceptSign(u"(")) return comparison();
    Node inner = alternatives();
    if (!acceptSign(u")")) refuse(u"and, or, or )");
    return inner;
  }

  Node comparison() {
    if (++conditions_ > kMostConditions) raise("filter:where:TooLong");
    const std::size_t field = takeField();
    if (accept(u"is")) {
      const bool isNegated = accept(u"not");
      if (!accept(u"empty")) refuse(u"empty");
      return negated({Operation::Empty, {}, field}, isNegated);
    }
    const bool isNegated = accept(u"not");
    if (accept(u"like")) return negated({Operation::Like, {}, field, {takeGlob(field)}}, isNegated);
    if (accept(u"in")) return negated({Operation::In, {}, field, takeList(field)}, isNegated);
    if (isNegated) refuse(u"like or in");
    const Operation operation = takeOperation();
    return {operation, {}, field, {takeValue(field)}};
  }

  std::size_t takeField() {
    if (word_.kind != Word::Kind::Name) refuse(u"the name of a field");
    const auto field = std::ranges::find(fields_, word_.text, &Field::name);
    if (field == fields_.end()) refuseField();
    advance();
    return static_cast<std::size_t>(field - fields_.begin());
  }

  [[noreturn]] void refuseField() const {
    std::vector<std::u16string> names;
    for (const Field& field : fields_) names.emplace_back(field.name);
    const std::u16string meant = fl::i18n::closest(word_.text, names);
    if (!meant.empty()) raise("filter:where:UnknownField", word_.text, meant);
    std::u16string all = names.empty() ? u"" : names.front();
    for (std::size_t i = 1; i < names.size(); ++i) all += u", " + names[i];
    raise("filter:where:NoSuchField", word_.text, all);
  }

  Operation takeOperation() {
    static constexpr std::pair<std::u16string_view, Operation> kSigns[] = {
        {u"=", Operation::Equal}, {u"!=", Operation::Unequal}, {u"<=", Operation::AtMost},
        {u"<", Operation::Below}, {u">=", Operation::AtLeast}, {u">", Operation::Above}};
    for (const auto& [sign, operation] : kSigns)
      if (acceptSign(sign)) return operation;
    refuse(u"= != < <= > >= like, in or is");
  }

  Value takeValue(std::size_t field) {
    if (++values_ > kMostValues) raise("filter:where:TooLong");
    const bool isText = word_.kind == Word::Kind::Text;
    if (!isText && word_.kind != Word::Kind::Number) refuse(u"a number or a text in quotes");
    if (isText && fields_[field].kind == Kind::Number)
      raise("filter:where:NumberNeeded", fields_[field].name, word_.text);
    Value value = isText ? Value(word_.text) : Value(word_.number);
    advance();
    return value;
  }

  Value takeGlob(std::size_t field) {
    if (fields_[field].kind == Kind::Number) raise("filter:where:TextNeeded", fields_[field].name);
    if (word_.kind != Word::Kind::Text) refuse(u"a text in quotes");
    return takeValue(field);
  }

  std::vector<Value> takeList(std::size_t field) {
    if (!acceptSign(u"(")) refuse(u"(");
    std::vector<Value> values{takeValue(field)};
    while (acceptSign(u",")) values.push_back(takeValue(field));
    if (!acceptSign(u")")) refuse(u", or )");
    return values;
  }

  Words words_;
  std::span<const Field> fields_;
  Word word_;
  int depth_ = 0;
  std::size_t conditions_ = 0, values_ = 0;
};

// ---- asked of a record ----

template <class Operand>
bool holds(Operation operation, const Operand& left, const Operand& right) {
  switch (operation) {
    case Operation::Unequal:
      return left != right;
    case Operation::Below:
      return left < right;
    case Operation::AtMost:
      return left <= right;
    case Operation::Above:
      return left > right;
    case Operation::AtLeast:
      return left >= right;
    default:
      return left == right;
  }
}

std::optional<double> asNumber(const Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) return numberOf(to_string_lossy(*text));
  const auto* number = std::get_if<double>(&value);
  return number == nullptr || std::isnan(*number) ? std::nullopt : std::optional(*number);
}

std::u16string_view asText(const Value& value) {
  const auto* text = std::get_if<std::u16string>(&value);
  return text == nullptr ? std::u16string_view() : *text;
}

bool compares(Operation operation, const Value& value, const Value& with) {
  // As UTF-8, whose bytes have the order of the characters, as in the database.
  if (std::holds_alternative<std::u16string>(with))
    return holds(operation, to_string_lossy(asText(value)), to_string_lossy(asText(with)));
  const std::optional<double> number = asNumber(value);
  return number ? holds(operation, *number, std::get<double>(with)) : operation == Operation::Unequal;
}

bool isEmpty(const Value& value) {
  if (const auto* number = std::get_if<double>(&value)) return std::isnan(*number);
  return asText(value).empty();
}

bool meets(const Node& node, const std::function<Value(std::size_t)>& valueOf) {
  const auto holdsFor = [&](const Node& operand) { return meets(operand, valueOf); };
  switch (node.operation) {
    case Operation::And:
      return std::ranges::all_of(node.operands, holdsFor);
    case Operation::Or:
      return std::ranges::any_of(node.operands, holdsFor);
    case Operation::Not:
      return !holdsFor(node.operands.front());
    case Operation::Empty:
      return isEmpty(valueOf(node.field));
    case Operation::Like:
      return fl::i18n::matchesGlob(asText(node.values.front()), asText(valueOf(node.field)));
    default:
      break;
  }
  const Value value = valueOf(node.field);
  const Operation operation = node.operation == Operation::In ? Operation::Equal : node.operation;
  return std::ranges::any_of(node.values,
                             [&](const Value& with) { return compares(operation, value, with); });
}

// ---- asked of a database ----

/// The glob as SQLite understands it: brackets, which have a meaning there, stand for themselves.
std::u16string databaseGlob(std::u16string_view glob) {
  std::u16string text;
  for (const char16_t unit : glob) unit == u'[' ? text += u"[[]" : text += unit;
  return text;
}

class SqlWriter {
 public:
  explicit SqlWriter(std::span<const std::string> columns) : columns_(columns) {}

  void write(const Node& node) {
    switch (node.operation) {
      case Operation::And:
        return writeJoined(node, " AND ");
      case Operation::Or:
        return writeJoined(node, " OR ");
      case Operation::Not:
        sql_.condition += "NOT ";
        return write(node.operands.front());
      case Operation::Empty:
        sql_.condition += "(coalesce(" + columns_[node.field] + ", '') = '')";
        return;
      case Operation::Like:
        sql_.condition += "(coalesce(" + columns_[node.field] + ", '') GLOB ?)";
        sql_.values.emplace_back(databaseGlob(asText(node.values.front())));
        return;
      case Operation::In:
        return writeList(node);
      default:
        writeComparison(node, node.values.front());
    }
  }

  Filter::Sql take() { return std::move(sql_); }

 private:
  void writeJoined(const Node& node, const char* between) {
    for (const Node& operand : node.operands) {
      sql_.condition += &operand == &node.operands.front() ? "(" : between;
      write(operand);
    }
    sql_.condition += ")";
  }

  /// `column sign` and what is needed to compare it with a value of this kind.
  std::string comparable(const Node& node, const Value& with) const {
    const std::string& column = columns_[node.field];
    return std::holds_alternative<double>(with) ? "number_of(" + column + ")"
                                                : "coalesce(" + column + ", '')";
  }

  void writeComparison(const Node& node, const Value& with) {
    static constexpr const char* kSigns[] = {"=", "!=", "<", "<=", ">", ">="};
    const auto sign = static_cast<std::size_t>(node.operation) - static_cast<std::size_t>(Operation::Equal);
    // Comparing NULL gives NULL, and "not" of it too; every condition must be true or false.
    const char* otherwise = node.operation == Operation::Unequal ? ", 1)" : ", 0)";
    sql_.condition += "coalesce(" + comparable(node, with) + " " + kSigns[sign] + " ?" + otherwise;
    sql_.values.push_back(with);
  }

  void writeList(const Node& node) {
    sql_.condition += "(0";
    for (const bool isText : {false, true}) {
      std::string places;
      for (const Value& with : node.values) {
        if (std::holds_alternative<std::u16string>(with) != isText) continue;
        if (places.empty()) sql_.condition += " OR coalesce(" + comparable(node, with) + " IN (";
        places += places.empty() ? "?" : ", ?";
        sql_.values.push_back(with);
      }
      if (!places.empty()) sql_.condition += places + "), 0)";
    }
    sql_.condition += ")";
  }

  std::span<const std::string> columns_;
  Filter::Sql sql_;
};

}  // namespace

std::optional<double> numberOf(std::string_view narrow) {
  const auto isBlankByte = [](char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); };
  while (!narrow.empty() && isBlankByte(narrow.front())) narrow.remove_prefix(1);
  while (!narrow.empty() && isBlankByte(narrow.back())) narrow.remove_suffix(1);
  // Only the minus sign is known to from_chars.
  if (narrow.size() > 1 && narrow.front() == '+' && narrow[1] != '-') narrow.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(narrow.data(), narrow.data() + narrow.size(), number);
  if (error != std::errc() || end != narrow.data() + narrow.size() || std::isnan(number)) return std::nullopt;
  return number;
}

Filter::Filter(std::u16string_view condition, std::span<const Field> fields)
    : root_(Parser(condition, fields).parse()) {}

bool Filter::matches(const std::function<Value(std::size_t)>& valueOf) const { return meets(root_, valueOf); }

Filter::Sql Filter::sql(std::span<const std::string> columns) const {
  SqlWriter writer(columns);
  writer.write(root_);
  return writer.take();
}

}  // namespace tavlox::filter
