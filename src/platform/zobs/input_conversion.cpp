#include "platform/zobs/input_conversion.h"

#include <cmath>
#include <limits>
#include <optional>

#include "platform/errors/exceptions.h"
#include "platform/zobs/class.h"
#include "platform/zobs/dispatch.h"

namespace zobs {
namespace {

using corvan::ArrayKind;
using corvan::HostArray;
using foundation::core::except::raise;

/// Nothing where the input is not of the type and cannot become it.
using Converted = std::optional<Value>;

Converted toUnicodeString(Value input) {
  if (std::holds_alternative<std::u16string>(input)) return input;
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr || array->kind() != ArrayKind::Char) return {};
  if (array->rows() > 1) return {};
  return std::u16string(array->text());
}

Converted toAny(Value input) {
  if (std::holds_alternative<HostArray>(input)) return input;
  if (const auto* const text = std::get_if<std::u16string>(&input)) return HostArray::charRow(*text);
  return {};
}

Converted toInt32Scalar(const Value& input) {
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr || !array->isNumeric() || !array->isScalar()) return {};
  const double number = array->scalarAsDouble();
  using Limits = std::numeric_limits<std::int32_t>;
  // A number that would have to be rounded or cut to size is more likely a mistake than meant. NaN compares
  // false.
  if (!(number >= Limits::min() && number <= Limits::max()) || number != std::trunc(number)) return {};
  return HostArray::int32Scalar(static_cast<std::int32_t>(number));
}

Converted toLogicalScalar(Value input) {
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr || !array->isScalar()) return {};
  if (array->kind() == ArrayKind::Logical) return input;
  if (!array->isNumeric() || std::isnan(array->scalarAsDouble())) return {};
  return HostArray::logicalScalar(array->scalarAsDouble() != 0);
}

Converted toObjectOf(const std::string& className, Value input) {
  const auto* const object = std::get_if<COSInterfacePointer>(&input);
  if (object == nullptr || !*object) return {};
  if ((*object)->getClass().getIdentifier().text() != className) return {};
  return input;
}

Converted convert(const std::string& type, Value input) {
  if (type == "unicodeString") return toUnicodeString(std::move(input));
  if (type == "any") return toAny(std::move(input));
  if (type == "int32 scalar") return toInt32Scalar(input);
  if (type == "logical scalar") return toLogicalScalar(std::move(input));
  return toObjectOf(type, std::move(input));
}

std::string describe(const Value& input) {
  if (std::holds_alternative<std::u16string>(input)) return "unicodeString";
  if (const auto* const object = std::get_if<COSInterfacePointer>(&input); object != nullptr && *object) {
    return (*object)->getClass().getIdentifier().text();
  }
  const auto* const array = std::get_if<HostArray>(&input);
  if (array == nullptr) return "nothing";
  return std::to_string(array->rows()) + "-by-" + std::to_string(array->columns()) + " " +
         std::string(array->className());
}

}  // namespace

std::vector<Value> convertInputs(const COSMethodInfo& method, std::vector<Value> inputs) {
  const COSMethodSignature& signature = method.getSignature();
  const std::vector<Interned>& types = signature.inputTypes();
  if (inputs.size() < signature.requiredInputCount() || inputs.size() > types.size()) {
    raise("Corvan:ObjectSystem:WrongInputCount", signatureText(method), inputs.size());
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    Converted converted = convert(types[i].text(), inputs[i]);
    if (!converted) {
      raise("Corvan:ObjectSystem:WrongInputType", signatureText(method), i + 1, types[i].text(),
            describe(inputs[i]));
    }
    inputs[i] = std::move(*converted);
  }
  return inputs;
}

}  // namespace zobs
