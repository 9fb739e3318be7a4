#pragma once

#include <cstring>
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

/// The texts of one field of many records. Neighbours often have the same one, units or a model, and then
/// share it.
class FieldTexts {
 public:
  const corvan::HostArray& value(std::u16string_view text) {
    const std::u16string_view last = last_.text();
    const bool isSame = last.size() == text.size() &&
                        std::memcmp(last.data(), text.data(), text.size() * sizeof(char16_t)) == 0;
    if (!isSame) last_ = pool->charRow(text);
    return last_;
  }
  // Repositories give some texts in UTF-8 and others in UTF-16; the host knows only the latter.
  const corvan::HostArray& value(std::string_view narrow) { return value(fl::i18n::to_ustring(narrow)); }

  corvan::TextPool* pool;  ///< that of all fields

 private:
  corvan::HostArray last_ = corvan::HostArray::charRow({});
};

/// One field of a record: its name, and how its value is read from the repository's object. That is a plain
/// function pointer, since the tables are constants and there is nothing to capture.
template <class Object>
struct RecordField {
  std::u16string_view name;
  corvan::HostArray (*read)(const Object&, FieldTexts& texts);
};

/// A 1×count structure array with the fields in the order of the table.
template <class Object, std::size_t Count>
corvan::HostArray makeRecords(const RecordField<Object> (&fields)[Count], std::size_t count) {
  // All fields exist from the start. A reader that fails leaves no record at all, never one with fields
  // missing.
  std::vector<std::u16string_view> names;
  for (const auto& field : fields) names.push_back(field.name);
  return corvan::HostArray::structure(1, count, names);
}

/// Fills the elements from as many objects, element by element: the repository reads one object at a time.
template <class Object, std::size_t Count>
void fillRecords(corvan::HostArray& records, const RecordField<Object> (&fields)[Count],
                 std::span<const Object> objects) {
  corvan::TextPool pool;
  FieldTexts texts[Count];
  for (FieldTexts& ofField : texts) ofField.pool = &pool;
  const std::span<corvan::HostArray> values = records.fieldValues();
  for (std::size_t index = 0; index < objects.size(); ++index) {
    for (std::size_t field = 0; field < Count; ++field) {
      values[field * objects.size() + index] = fields[field].read(objects[index], texts[field]);
    }
  }
}

/// The value of a getter that gives a text.
template <auto Getter, class Object>
corvan::HostArray text(const Object& object, FieldTexts& texts) {
  return texts.value((object.*Getter)());
}

}  // namespace orra::tavloxio
