#include "platform/opc/xml_element.h"

#include <utility>

#include "platform/opc/xml_reader.h"
#include "platform/opc/xml_writer.h"

namespace opc::xml {
namespace {

QualifiedName keep(const Name& name) {
  return {std::string(name.space), std::string(name.local), std::string(name.prefix)};
}

class TreeBuilder : public Handler {
 public:
  void declare(std::string_view prefix, std::string_view space) override {
    declarations_.push_back({std::string(prefix), std::string(space)});
  }

  void start(const Name& name, const Attributes& attributes, Span) override {
    Element element;
    element.name = keep(name);
    element.declarations = std::move(declarations_);
    declarations_.clear();
    attributes.forEach([&](const Name& attribute, std::string_view value) {
      element.attributes.push_back({keep(attribute), std::string(value)});
    });
    path_.push_back(std::move(element));
  }

  void end(Span) override {
    Element element = std::move(path_.back());
    path_.pop_back();
    if (path_.empty()) {
      root_ = std::move(element);
    } else {
      path_.back().children.emplace_back(std::move(element));
    }
  }

  void text(std::string_view piece) override {
    std::vector<Element::Child>& children = path_.back().children;
    if (children.empty() || !std::holds_alternative<std::string>(children.back()))
      children.emplace_back(std::string());
    std::get<std::string>(children.back()).append(piece);
  }

  Element takeRoot() { return std::move(root_); }

 private:
  std::vector<Declaration> declarations_;  // of the element that comes next
  std::vector<Element> path_;
  Element root_;
};

void write(const Element& element, Writer& writer) {
  writer.open(element.name.written());
  for (const Declaration& declaration : element.declarations) {
    writer.attribute(declaration.prefix.empty() ? "xmlns" : "xmlns:" + declaration.prefix, declaration.space);
  }
  for (const Element::Attribute& attribute : element.attributes) {
    writer.attribute(attribute.name.written(), attribute.value);
  }
  for (const Element::Child& child : element.children) {
    if (const auto* text = std::get_if<std::string>(&child)) {
      writer.text(*text);
    } else {
      write(std::get<Element>(child), writer);
    }
  }
  writer.close();
}

}  // namespace

const Element* Element::find(std::string_view space, std::string_view local) const {
  for (const Child& child : children) {
    const auto* element = std::get_if<Element>(&child);
    if (element != nullptr && element->name.local == local && element->name.space == space) return element;
  }
  return nullptr;
}

Element* Element::find(std::string_view space, std::string_view local) {
  return const_cast<Element*>(std::as_const(*this).find(space, local));
}

std::string Element::text() const {
  std::string whole;
  for (const Child& child : children) {
    const auto* piece = std::get_if<std::string>(&child);
    whole += piece != nullptr ? *piece : std::get<Element>(child).text();
  }
  return whole;
}

Element readElement(std::string_view bytes, const DocumentPlace& place, int depthLimit) {
  TreeBuilder builder;
  read(bytes, place, depthLimit, builder);
  return builder.takeRoot();
}

std::string writeDocument(const Element& root, std::string_view packagePath) {
  Writer writer(packagePath);
  write(root, writer);
  return writer.take();
}

}  // namespace opc::xml
