#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace opc::xml {

/// Writes one XML document, or a piece of one, in UTF-8, front to back; names are given as they are to be
/// written, prefixes included. `open("a").attribute("b", "c").text("d").close();` Every reader gets back
/// exactly the texts that were given: carriage returns, and in attributes tabs and line feeds, are written as
/// references.
class Writer {
 public:
  enum class Start { Document, Fragment };
  /// A document starts with the XML declaration. `packagePath` (UTF-8) is for messages and must outlive the
  /// writer.
  explicit Writer(std::string_view packagePath, Start start = Start::Document);

  Writer& open(std::string_view name);
  /// Belongs to the element that was just opened. Raises opc::Exception for a character that XML 1.0 cannot
  /// carry (most control characters, U+FFFE, U+FFFF) and for ill-formed UTF-8.
  Writer& attribute(std::string_view name, std::string_view value);
  /// Raises likewise.
  Writer& text(std::string_view value);
  /// Ends the element opened last; an empty one is written `<a/>`.
  Writer& close();

  std::string take() { return std::move(document_); }

 private:
  enum class Inside { Text, Attribute };
  static const char* referenceFor(char character, Inside inside);
  void endTag();
  void append(std::string_view value, Inside inside);

  std::string_view packagePath_;
  std::string document_;
  std::vector<std::string> open_;
  bool isTagOpen_ = false;
};

/// UTF-16 as UTF-8 for a document. Raises opc::Exception, naming the package, for what XML 1.0 cannot carry.
std::string toXmlText(std::u16string_view text, std::string_view packagePath);

}  // namespace opc::xml
