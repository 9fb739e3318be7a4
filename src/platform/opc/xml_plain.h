#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/xml_reader.h"

namespace opc::xml {

/// What is in memory of a document: all of it, or a window that moves over it from front to back.
class Window {
 public:
  explicit Window(std::string_view document) : rest_(document) {}
  explicit Window(const Source& source);

  /// What lies in the window and was not taken yet; valid until `grow`.
  std::string_view rest() const { return rest_; }
  /// Where that starts, in bytes from the start of the document.
  std::size_t offset() const { return offset_; }
  void take(std::size_t count) {
    rest_.remove_prefix(count);
    offset_ += count;
  }
  /// Makes the rest longer or finds out that there is no more. False if neither can be: that was known, or
  /// the window is full.
  bool grow();
  /// Whether the document is known to end where the window does.
  bool isAtEnd() const { return source_ == nullptr; }

 private:
  const Source* source_ = nullptr;  // null once it gave everything
  std::vector<char> buffer_;
  std::string_view rest_;
  std::size_t offset_ = 0;
};

/// Reads a list as nearly every program writes it, several times as fast as a parser of all XML: a root that
/// declares its namespace and nothing else, and below it empty elements whose attributes are printable ASCII
/// without references. It refuses nothing. Where a document goes on in another way it stops, and the parser
/// goes on at that place; what it has read until then, the parser would have read in the same way. Only the
/// white space between the elements is not reported.
class PlainList {
 public:
  PlainList(Window& window, Handler& handler) : window_(window), handler_(handler) {}

  /// Whether the document was read to its end. If not, the window is where reading must go on: at the start
  /// of the document, or below the root.
  bool read();

  /// The document up to where the root's start tag ends; empty if that was not read.
  const std::string& opening() const { return opening_; }
  /// How many line ends lie between that and where reading must go on.
  std::size_t linesRead() const { return lines_; }

 private:
  bool readOpening();
  bool readItem();
  /// An item that differs from the one before in nothing but a few values, as most do.
  bool readAlike();
  bool readEnd();
  /// Hands on an item that has the shape; `end` is where it ends in the window.
  void report(const char* end);

  /// A value that is another from item to item.
  struct Gap {
    std::string_view before;  ///< what stands between it and the one before, with its first quote
    std::size_t attribute;    ///< index of its attribute
  };
  /// How the last item was written that the next are compared with. All texts are pieces of the first.
  struct Shape {
    std::string text;  ///< from behind the item before it to its end
    std::string_view name;
    std::size_t indent = 0, lines = 0;
    std::vector<Gap> gaps;
    std::string_view end;  ///< what stands behind the last of them
  };
  /// Takes an item for the one that the next are compared with. The texts are pieces of `text`.
  void learn(std::string_view text, std::string_view name, std::span<const Attribute> attributes);
  bool isGap(std::size_t attribute) const;

  Window& window_;
  Handler& handler_;
  std::string opening_, space_, root_;
  Shape shape_;
  std::vector<Attribute> attributes_;  ///< of the last item, pieces of the shape but for what fills gaps
  std::size_t lines_ = 0;
};

/// What `read` does, all by the parser: what it must be the same as.
void readByParser(std::string_view bytes, const Location& location, int depthLimit, Handler& handler);

}  // namespace opc::xml
