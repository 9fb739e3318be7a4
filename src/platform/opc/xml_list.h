#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/opc/xml_reader.h"

namespace opc::xml {

/// The text of a document that is one list of elements below a root, while elements are taken out of it,
/// changed and appended. Everything else stays byte for byte as it was written: what others put between and
/// into the elements, comments, layout, prefixes. A document that was UTF-16 becomes UTF-8.
class ListText {
 public:
  ListText() = default;
  /// A document that was read. `root` is the root's name with its prefix, `end` where the root ends: its end
  /// tag, or the empty piece behind it if it is one empty tag.
  ListText(std::string_view document, std::string_view root, Span end);

  /// A new document without elements; `space` is the root's default namespace.
  static ListText empty(std::string_view root, std::string_view space);

  /// A name for an element of the root's namespace, written as the root's.
  std::string prefixed(std::string_view local) const { return prefix_ + std::string(local); }

  /// Puts an element, as `writeElement` gives it, behind the others, and tells where it stands.
  Span append(std::string_view element);
  /// Takes an element out; the white space in front of it, which is layout, goes with it.
  void cut(Span element);
  /// What is cut or replaced must not overlap.
  void replace(Span piece, std::string text) { edits_.emplace_back(piece, std::move(text)); }

  /// The document as it is now, in UTF-8.
  std::string toBytes() const;

 private:
  std::string text_;  // up to where elements are appended, as it was read
  std::string tail_;  // the rest: the root's end tag and what follows
  std::string prefix_;
  std::vector<std::pair<Span, std::string>> edits_;  // in any order
};

/// Reads a document that is one flat list: a root, and items without content in it. Elements of foreign
/// namespaces are skipped with everything below them.
class ListReader : public Handler {
 public:
  /// `space` is the list's own namespace.
  explicit ListReader(std::string_view space) : space_(space) {}

  void begin(std::string_view document) final { document_ = document; }
  void start(const Name& name, const Attributes& attributes, Span tag) final;
  void end(Span tag) final;
  void text(std::string_view piece) final;

 protected:
  virtual void readRoot(const Name& name, const Attributes& attributes) = 0;
  /// An element of the list's own namespace, directly below the root.
  virtual void readItem(const Name& name, const Attributes& attributes) = 0;
  /// Comes after each item: all of its text.
  virtual void endItem(Span item) = 0;
  /// Comes last, but not for a document that is read piece by piece: its text.
  virtual void endRoot(ListText text) = 0;
  /// Refuses an element of the own namespace where none may stand, and text other than white space.
  [[noreturn]] virtual void refuseElement(const Name& name) const = 0;
  [[noreturn]] virtual void refuseText() const = 0;

 private:
  const std::string_view space_;
  std::string_view document_;  // empty if it is read piece by piece
  std::string root_;           // its name, as written
  std::size_t itemBegin_ = 0;
  int depth_ = 0;
  int skippedFrom_ = 0;  // depth of the foreign element that is being skipped, or 0
};

}  // namespace opc::xml
