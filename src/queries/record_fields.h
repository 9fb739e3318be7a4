#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "metadata/session_repository.h"
#include "platform/arrays/host_array.h"
#include "platform/text/conversion.h"

/// How the host structures of runs and signals are made: a table says how each field is read, and one
/// transaction reads them all.
namespace orra::tavloxio {

// Records show one state of the repository: all fields, and of signals all elements, within one transaction.
/// Runs the work as one repository transaction and raises what it gathered, see throwCollected.
inline void runTransaction(ObjectManager& manager, const boost::function<void()>& work) {
  foundation::core::except::collection errors;
  manager.safeTransaction(work, errors);
  throwCollected(errors);
}

/// One field of a record: its name, and how its value is made of the repository's object. That is a plain
/// function pointer, since the tables are constants and there is nothing to capture.
template <class Object>
struct RecordField {
  std::u16string_view name;
  corvan::HostArray (*read)(const Object&, corvan::TextPool& texts);
  /// What it is made of, as a bit like those of Signal::repeatedFields.
  std::uint32_t source = 0;
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

/// The value of a getter that gives a text.
template <auto Getter, class Object>
corvan::HostArray text(const Object& object, corvan::TextPool& texts) {
  // Repositories give some texts in UTF-8 and others in UTF-16; the host knows only the latter.
  if constexpr (std::is_convertible_v<decltype((object.*Getter)()), std::u16string_view>) {
    return texts.charRow((object.*Getter)());
  } else {
    return texts.charRow(fl::i18n::to_ustring((object.*Getter)()));
  }
}

}  // namespace orra::tavloxio
