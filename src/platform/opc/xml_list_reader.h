#pragma once

#include <string_view>

#include "platform/opc/xml_reader.h"

namespace opc::xml {

/// Reads a document that is one flat list: a root, and items without content in it. Elements of foreign
/// namespaces are skipped with everything below them.
class ListReader : public Handler {
 public:
  /// `space` is the list's own namespace.
  explicit ListReader(std::string_view space) : space_(space) {}

  void start(const Name& name, const Attributes& attributes) final;
  void end() final;
  void text(std::string_view piece) final;

 protected:
  virtual void readRoot(const Name& name, const Attributes& attributes) = 0;
  /// An element of the list's own namespace, directly below the root.
  virtual void readItem(const Name& name, const Attributes& attributes) = 0;
  /// Refuses an element of the own namespace where none may stand, and text other than white space.
  [[noreturn]] virtual void refuseElement(const Name& name) const = 0;
  [[noreturn]] virtual void refuseText() const = 0;

 private:
  const std::string_view space_;
  int depth_ = 0;
  int skippedFrom_ = 0;  // depth of the foreign element that is being skipped, or 0
};

}  // namespace opc::xml
