// The extension `tavlox._host`: what the Python side needs of the object system. It knows no class and no
// function by name. It tells what is registered (`namespaces`), and makes objects, reads properties and calls
// members by their names; the package's modules make Python classes of that.
#include <pybind11/pybind11.h>

#include "hosts/python/calls.h"
#include "hosts/python/index.h"
#include "hosts/python/samples.h"
#include "hosts/python/values.h"
#include "platform/errors/catalog.h"
#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"
#include "platform/zobs/dispatch.h"
#include "platform/zobs/module_loader.h"

namespace tavlox::python {
namespace {

using foundation::core::except::raise;
using zobs::COSMethodInfo;
using zobs::COSNamespace;

zobs::COSClient& client() {
  static zobs::COSClient python("Python");
  return python;
}

/// The inputs of one call, while it is not its turn yet.
class Inputs {
 public:
  explicit Inputs(const py::tuple& inputs) {
    for (const py::handle input : inputs) {
      // Objects of the Python classes carry the host's.
      const py::object object = py::getattr(input, "_object", py::none());
      shared_.push_back(toShared(object.is_none() ? input : object));
      if (!shared_.back()) types_.emplace_back(shared_.size(), Py_TYPE(input.ptr())->tp_name);
    }
  }

  /// Copies of them, behind `before` inputs that the host adds. Raises Corvan:ObjectSystem:WrongInputType for
  /// one of a Python type that no host value stands for.
  std::vector<zobs::Value> values(const COSMethodInfo* method, std::size_t before) const {
    if (!types_.empty() && method != nullptr) refuse(*method, before);
    std::vector<zobs::Value> values;
    for (const SharedValue& one : shared_) values.push_back(one ? *one : zobs::Value());
    return values;
  }

 private:
  void refuse(const COSMethodInfo& method, std::size_t before) const {
    const auto& expected = method.getSignature().inputTypes();
    const auto& [place, type] = types_.front();
    // Too many inputs are told as such by the dispatch.
    if (before + shared_.size() > expected.size()) return;
    const std::size_t input = before + place;
    raise("Corvan:ObjectSystem:WrongInputType", signatureText(method), input, expected[input - 1].text(),
          type);
  }

  std::vector<SharedValue> shared_;
  std::vector<std::pair<std::size_t, std::string>> types_;  // from 1, of inputs that have no host value
};

SharedValue firstOf(std::vector<zobs::Value> outputs) {
  return share(outputs.empty() ? zobs::Value() : std::move(outputs.front()));
}

const zobs::COSInterfacePointer& pointerOf(const Object& object) {
  return std::get<zobs::COSInterfacePointer>(*object.value);
}

Object construct(const std::string& className, const py::tuple& arguments) {
  const Inputs inputs(arguments);
  return Object{inTurn([&] {
    zobs::COSClass& objectClass = zobs::findClass(className);
    return share(zobs::construct(client(), objectClass, inputs.values(objectClass.constructor(), 0)));
  })};
}

py::object call(const Object& object, const std::string& method, const py::tuple& arguments) {
  const Inputs inputs(arguments);
  return toPython(inTurn([&] {
    const zobs::COSInterfacePointer& pointer = pointerOf(object);
    auto values = inputs.values(pointer->getClass().findMethod(method), 1);
    return firstOf(zobs::callMethod(client(), pointer, method, std::move(values)));
  }));
}

py::object callFunction(const std::string& holder, const std::string& name, const py::tuple& arguments) {
  const Inputs inputs(arguments);
  return toPython(inTurn([&] {
    COSNamespace* const found = COSNamespace::getNamespace(holder);
    zobs::COSFunction* const function = found != nullptr ? found->findFunction(name) : nullptr;
    auto values = inputs.values(function != nullptr ? function->info.get() : nullptr, 0);
    return firstOf(zobs::callFunction(client(), holder + "." + name, std::move(values)));
  }));
}

py::object getProperty(const Object& object, const std::string& name) {
  return toPython(inTurn([&] { return share(zobs::getProperty(pointerOf(object), name)); }));
}

// What is registered, as dictionaries and lists. It is read with the interpreter's lock held, since Python
// objects are made on the way; that happens once for each module that is loaded.

py::str described(const std::u16string& brief, const std::u16string& detailed) {
  return toPython(brief.empty() || detailed.empty() ? brief + detailed : brief + u"\n\n" + detailed);
}

py::dict describe(const COSMethodInfo& method) {
  const zobs::COSMethodSignature& signature = method.getSignature();
  py::list inputs, outputs;
  for (const zobs::Interned type : signature.inputTypes()) inputs.append(type.text());
  for (const zobs::Interned type : signature.outputTypes()) outputs.append(type.text());
  using namespace py::literals;
  return py::dict("name"_a = nameOf(method), "signature"_a = signatureText(method), "inputs"_a = inputs,
                  "outputs"_a = outputs, "optional"_a = signature.optionalInputCount(),
                  "description"_a = described(method.getDescription(), method.getDetailedDescription()));
}

py::dict describe(zobs::COSClass& one) {
  py::list methods, properties;
  for (const auto& method : one.methods()) {
    if (method->getMemberAccess() == zobs::kPublicAccess) methods.append(describe(*method));
  }
  using namespace py::literals;
  for (const zobs::COSProperty& property : one.properties()) {
    if (property.access.get != zobs::kPublicAccess) continue;
    properties.append(py::dict("name"_a = property.name.text(), "type"_a = property.type.text(),
                               "description"_a = toPython(property.description)));
  }
  const COSMethodInfo* const constructor = one.constructor();
  return py::dict(
      "name"_a = one.info().getName(), "identifier"_a = one.getIdentifier().text(),
      "description"_a = described(one.info().getDescription(), one.info().getDetailedDescription()),
      "constructor"_a = constructor != nullptr ? py::object(describe(*constructor)) : py::none(),
      "methods"_a = methods, "properties"_a = properties);
}

py::dict describe(COSNamespace& one) {
  py::list classes, functions, inner;
  for (const auto& each : one.classes()) {
    if (each->getAccess().get == zobs::kPublicAccess) classes.append(describe(*each));
  }
  for (const auto& function : one.functions()) {
    if (function->access.get == zobs::kPublicAccess) functions.append(describe(*function->info));
  }
  for (const auto& each : one.innerNamespaces()) inner.append(describe(*each));
  using namespace py::literals;
  return py::dict(
      "name"_a = one.getName().text(),
      "description"_a = described(one.info().getDescription(), one.info().getDetailedDescription()),
      "classes"_a = classes, "functions"_a = functions, "inner"_a = inner);
}

py::list namespaces() {
  std::optional<Failure> failure;
  py::list all;
  {
    const Turn turn;
    try {
      for (const auto& one : COSNamespace::namespaces()) all.append(describe(*one));
    } catch (const py::error_already_set&) {
      throw;
    } catch (...) {
      failure = describeFailure();
    }
  }
  if (failure) python::raise(*failure);
  return all;
}

void load(const py::str& path) {
  const std::u16string module = toText(path);
  inTurn([&] {
    zobs::loadModule(module);
    return true;
  });
}

}  // namespace
}  // namespace tavlox::python

PYBIND11_MODULE(_host, host) {
  using namespace tavlox::python;
  prepareForForks();

  py::class_<Object>(host, "Object").def_property_readonly("is_foreign", &Object::isForeign);
  py::class_<Structure>(host, "Structure")
      .def("with_lists", &Structure::withLists)
      .def_property_readonly("names", &Structure::names)
      .def("__len__", &Structure::size)
      .def("value", &Structure::value)
      .def("column", &Structure::column);

  host.def("load", &load);
  host.def("namespaces", &namespaces);
  host.def("construct", &construct);
  host.def("call", &call);
  host.def("call_function", &callFunction);
  host.def("get_property", &getProperty);
  host.def("installed_module", [](const std::string& name) { return toPython(zobs::installedModule(name)); });
  host.def("catalog_folder", [] { return py::str(fl::i18n::catalogFolder().native()); });
  addSamples(host);
  addRecording(host);
  addIndex(host);
}
