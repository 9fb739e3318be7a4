#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "metadata/session_repository.h"
#include "platform/arrays/host_array.h"
#include "platform/text/conversion.h"

/// How the host structures of runs and signals are made: a table says how each field is read, and one
/// transaction fills them all.
namespace orra::tavloxio {

// Records show one state of the repository: all fields, and of signals all elements, within one transaction.
/// Runs the work as one repository transaction and raises what it gathered, see throwCollected.
inline void runTransaction(ObjectManager& manager, const boost::function<void()>& work) {
  foundation::core::except::collection errors;
  manager.safeTransaction(work, errors);
  throwCollected(errors);
}

/// One field of a record: its name, and how its value is read from the repository's object. That is a plain
/// function pointer, since the tables are constants and there is nothing to capture.
template <class Object>
struct RecordField {
  std::u16string_view name;
  corvan::HostArray (*read)(const Object&);
};

/// A 1×count structure array with the fields in the order of the table.
template <class Object>
corvan::HostArray makeRecords(std::span<const RecordField<Object>> fields, std::size_t count) {
  // All fields exist from the start. A reader that fails leaves no record at all, never one with fields
  // missing.
  std::vector<std::u16string_view> names;
  for (const auto& field : fields) names.push_back(field.name);
  return corvan::HostArray::structure(1, count, names);
}

/// Fills the element at `index` from the object, field by field.
template <class Object>
void fillRecord(corvan::HostArray& records, std::size_t index, std::span<const RecordField<Object>> fields,
                const Object& object) {
  for (std::size_t field = 0; field < fields.size(); ++field) {
    records.setField(index, field, fields[field].read(object));
  }
}

// Repositories give some texts in UTF-8 and others in UTF-16; the host knows only the latter.
inline corvan::HostArray textValue(const std::u16string& text) { return corvan::HostArray::charRow(text); }
inline corvan::HostArray textValue(const std::string& narrow) {
  return textValue(fl::i18n::to_ustring(narrow));
}

/// The value of a getter that gives a text.
template <auto Getter, class Object>
corvan::HostArray text(const Object& object) {
  return textValue((object.*Getter)());
}

}  // namespace orra::tavloxio
