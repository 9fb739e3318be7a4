// Host arrays are always two-dimensional and lie in memory column by column: a number is a 1×1 array, a text
// a 1×N array of UTF-16 units. JSON readers expect a plain value, a string, and lists of rows, so every
// writer here turns the elements and leaves out dimensions of 1.
#include "hosts/cli/host_json.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::ArrayKind;
using corvan::HostArray;
using corvan::NumericClass;
using fl::i18n::JsonWriter;

/// Writes rows × columns elements, which lie column by column, in the shape JSON readers expect.
template <class WriteElement>
void writeShape(JsonWriter& json, std::size_t rows, std::size_t columns, const WriteElement& writeElement) {
  // An array with a dimension of 0 falls through to the empty list.
  if (rows == 1 && columns == 1) return writeElement(std::size_t{0});
  const bool isVector = rows <= 1 || columns <= 1;
  json.beginArray();
  for (std::size_t i = 0; isVector && i < rows * columns; ++i) writeElement(i);
  for (std::size_t row = 0; !isVector && row < rows; ++row) {
    json.beginArray();
    for (std::size_t column = 0; column < columns; ++column) writeElement(column * rows + row);
    json.endArray();
  }
  json.endArray();
}

/// Each number as the widest of its sort, which is what the writer knows.
template <class Number, class Widest>
void writeNumbers(JsonWriter& json, const HostArray& array) {
  const auto values = array.values<Number>();
  writeShape(json, array.rows(), array.columns(),
             [&](std::size_t i) { json.value(static_cast<Widest>(values[i])); });
}

void writeNumeric(JsonWriter& json, const HostArray& array) {
  switch (array.numericClass()) {
    case NumericClass::Double:
      return writeNumbers<double, double>(json, array);
    case NumericClass::Single:
      return writeNumbers<float, double>(json, array);
    case NumericClass::Int8:
      return writeNumbers<std::int8_t, std::int64_t>(json, array);
    case NumericClass::Int16:
      return writeNumbers<std::int16_t, std::int64_t>(json, array);
    case NumericClass::Int32:
      return writeNumbers<std::int32_t, std::int64_t>(json, array);
    case NumericClass::Int64:
      return writeNumbers<std::int64_t, std::int64_t>(json, array);
    case NumericClass::UInt8:
      return writeNumbers<std::uint8_t, std::uint64_t>(json, array);
    case NumericClass::UInt16:
      return writeNumbers<std::uint16_t, std::uint64_t>(json, array);
    case NumericClass::UInt32:
      return writeNumbers<std::uint32_t, std::uint64_t>(json, array);
    case NumericClass::UInt64:
      return writeNumbers<std::uint64_t, std::uint64_t>(json, array);
  }
}

void writeChars(JsonWriter& json, const HostArray& array) {
  // A char array of several rows holds one text in each, padded with blanks by whoever made it.
  const std::u16string_view units = array.text();
  if (array.rows() <= 1 || units.empty()) {
    json.value(units);
    return;
  }
  json.beginArray();
  for (std::size_t row = 0; row < array.rows(); ++row) {
    std::u16string line;
    for (std::size_t column = 0; column < array.columns(); ++column)
      line += units[column * array.rows() + row];
    json.value(line);
  }
  json.endArray();
}

/// Fields keep the order of the array's definition.
void writeStructure(JsonWriter& json, const HostArray& array) {
  const std::vector<std::u16string>& names = array.fieldNames();
  if (!array.isScalar()) json.beginArray();
  for (std::size_t index = 0; index < array.elementCount(); ++index) {
    json.beginObject();
    for (std::size_t field = 0; field < names.size(); ++field) {
      json.member(fl::i18n::to_string_lossy(names[field]));
      writeJson(json, array.fieldAt(index, field));
    }
    json.endObject();
  }
  if (!array.isScalar()) json.endArray();
}

void writeCells(JsonWriter& json, const HostArray& array) {
  json.beginArray();
  for (std::size_t index = 0; index < array.elementCount(); ++index) writeJson(json, array.cellAt(index));
  json.endArray();
}

}  // namespace

void writeJson(JsonWriter& json, const HostArray& array) {
  switch (array.kind()) {
    case ArrayKind::Numeric:
      return writeNumeric(json, array);
    case ArrayKind::Logical:
      return writeNumbers<bool, bool>(json, array);
    case ArrayKind::Char:
      return writeChars(json, array);
    case ArrayKind::Cell:
      return writeCells(json, array);
    case ArrayKind::Struct:
      return writeStructure(json, array);
  }
}

void writeJson(JsonWriter& json, const zobs::Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) {
    json.value(*text);
    return;
  }
  if (const auto* array = std::get_if<HostArray>(&value)) return writeJson(json, *array);
  // Nothing and objects have no JSON form. The writer writes null for a number that JSON cannot carry.
  json.value(std::numeric_limits<double>::quiet_NaN());
}

std::u16string cellText(const zobs::Value& value) {
  if (const auto* text = std::get_if<std::u16string>(&value)) return *text;
  if (const auto* array = std::get_if<HostArray>(&value)) return cellText(*array);
  return {};
}

std::u16string cellText(const HostArray& array) {
  if (array.kind() == ArrayKind::Char && array.rows() <= 1) return std::u16string(array.text());
  JsonWriter json;
  writeJson(json, array);
  // Tables leave a cell empty where there is no value.
  return json.text() == "null" ? std::u16string() : fl::i18n::to_ustring_lossy(json.text());
}

}  // namespace tavlox::cli
