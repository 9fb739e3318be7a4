#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/opc/xml_reader.h"

namespace opc::xml {

/// The text of a document that is one flat list, while items are cut out of it and appended to it. Everything
/// else stays as it was written: what others put between and into the items, comments, layout, prefixes.
class ListText {
 public:
  using Attribute = std::pair<std::string_view, std::string_view>;

  /// A list without items, whose root has `space` as its default namespace.
  ListText(std::string_view root, std::string_view space);
  /// A list that was read. `root` is the root's name with its prefix, `end` where the root ends: its end tag,
  /// or the place behind it if it is one empty tag.
  ListText(std::string_view text, std::string_view root, Span end);

  /// Adds an element of the list's namespace behind the others and gives its place. The texts must be such as
  /// XML can carry.
  Span append(std::string_view name, std::initializer_list<Attribute> attributes);
  /// Takes out what stands there; the white space in front of it, which is layout, goes with it.
  void cut(Span item);

  std::string toBytes() const;

 private:
  void dropDeclaredUtf16();

  std::string text_;  // up to where items are appended
  std::string tail_;  // the rest: the root's end tag and what follows
  std::string prefix_;
  std::vector<Span> cuts_;  // in any order; none overlap
};

}  // namespace opc::xml
