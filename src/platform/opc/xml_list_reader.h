#pragma once

#include <string>
#include <string_view>

#include "platform/opc/xml_list_text.h"
#include "platform/opc/xml_reader.h"

namespace opc::xml {

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
  /// Comes last.
  virtual void endRoot(ListText text) = 0;
  /// Refuses an element of the own namespace where none may stand, and text other than white space.
  [[noreturn]] virtual void refuseElement(const Name& name) const = 0;
  [[noreturn]] virtual void refuseText() const = 0;

 private:
  const std::string_view space_;
  std::string_view document_;
  std::string root_;  // its name, as written
  std::size_t itemBegin_ = 0;
  int depth_ = 0;
  int skippedFrom_ = 0;  // depth of the foreign element that is being skipped, or 0
};

}  // namespace opc::xml
