#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fl::i18n {

/// Writes one JSON document (RFC 8259) into a text, front to back. Calls nest as the document does:
/// `beginObject(); member("id"); value(1); endObject();`. Commas are put in where they belong. Control
/// characters are escaped, also those that JSON lets pass (U+007F to U+009F) and terminals obey.
///
/// The calls are not checked: a member's name must be followed by its value, and what is begun must be ended.
class JsonWriter {
 public:
  // Every call gives the writer itself, so that calls can be chained.

  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();

  /// The name of the member whose value follows.
  JsonWriter& member(std::string_view name);
  /// UTF-8 must be well-formed; UTF-16 with a lone surrogate is written in \u escapes.
  JsonWriter& value(std::string_view narrow);
  JsonWriter& value(std::u16string_view text);
  // Literals of either width would otherwise become a logical.
  JsonWriter& value(const char* narrow) { return value(std::string_view(narrow)); }
  JsonWriter& value(const char16_t* text) { return value(std::u16string_view(text)); }
  JsonWriter& value(bool logical);
  /// Integers in full, whatever their size; readers that keep numbers as doubles round those beyond 2^53.
  JsonWriter& value(std::int64_t number);
  JsonWriter& value(int number) { return value(static_cast<std::int64_t>(number)); }
  JsonWriter& value(std::uint64_t number);
  /// The shortest decimal text that reads back as the same double; null for a value JSON cannot carry.
  JsonWriter& value(double number);

  /// Takes over JSON that was written before, for what is written very often. Nothing is put in front of it,
  /// and it does not count as a value.
  JsonWriter& append(std::string_view json);

  /// What was written since the beginning, or since the last `take`, as UTF-8.
  const std::string& text() const { return text_; }

  /// Hands over what was written so far and goes on with an empty text: long documents are written in pieces.
  std::string take();

 private:
  void separate();
  JsonWriter& open(char bracket);
  JsonWriter& close(char bracket);
  void appendEscaped(std::string_view narrow);

  std::string text_;
  std::vector<bool> hasElements_;  // one for each object and array that is open
  bool afterMember_ = false;       // a name was written, and its value is due
};

}  // namespace fl::i18n
