#include "platform/session_index/found_records.h"

#include <algorithm>
#include <limits>

#include "platform/text/conversion.h"

namespace tavlox::session_index {
namespace {

using corvan::HostArray;

// Numbers that hosts show as int32.
constexpr std::u16string_view kIntegers[] = {u"RunID",    u"id",        u"RunOrderIndex",
                                             u"RunIndex", u"PortIndex", u"SamplesColumn",
                                             u"NumRuns",  u"NumSignals"};

enum class Form { Text, List, Integer, Number };

Form formOf(const filter::Field& field) {
  const auto isIn = [&](std::span<const std::u16string_view> names) {
    return std::ranges::find(names, field.name) != names.end();
  };
  if (field.kind == filter::Kind::Text) return isIn(kLists) ? Form::List : Form::Text;
  return isIn(kIntegers) ? Form::Integer : Form::Number;
}

/// "[3,4]", as the index keeps a list, as an array.
HostArray listOf(std::string_view json) {
  std::vector<double> numbers;
  for (std::size_t at = 1; at < json.size(); at = std::min(json.find(',', at), json.size() - 1) + 1) {
    const std::size_t end = json.find_first_of(",]", at);
    if (const auto number = filter::numberOf(json.substr(at, end - at))) numbers.push_back(*number);
  }
  HostArray list = HostArray::numeric(corvan::NumericClass::Double, 1, numbers.size());
  std::ranges::copy(numbers, list.mutableValues<double>().begin());
  return list;
}

HostArray toHost(const Cell& cell, Form form) {
  if (const auto* text = std::get_if<std::string>(&cell))
    return form == Form::List ? listOf(*text) : HostArray::charRow(fl::i18n::to_ustring_lossy(*text));
  const auto* number = std::get_if<double>(&cell);
  if (number == nullptr) return HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN());
  // What somebody else put into the index may be any number.
  using Limits = std::numeric_limits<std::int32_t>;
  const bool isInteger = form == Form::Integer && *number >= Limits::min() && *number <= Limits::max();
  return isInteger ? HostArray::int32Scalar(static_cast<std::int32_t>(*number))
                   : HostArray::doubleScalar(*number);
}

}  // namespace

HostArray FoundRecords::take() {
  std::vector<std::u16string_view> names;
  std::vector<Form> forms;
  for (const filter::Field& field : fieldsOf(subject_)) {
    names.push_back(field.name);
    forms.push_back(formOf(field));
  }
  HostArray records = HostArray::structure(1, rows_.size(), names);
  for (std::size_t i = 0; i < rows_.size(); ++i)
    for (std::size_t field = 0; field < names.size(); ++field)
      records.setField(i, field, toHost(rows_[i][field], forms[field]));
  rows_.clear();
  return records;
}

}  // namespace tavlox::session_index
