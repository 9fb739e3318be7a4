#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace orra {

/// A JSON array of objects ("object references") such as the run list and the signals parts. Loading validates the
/// whole text: well-formed JSON and UTF-8, an array of objects, every `id` an int32 that no other element has, nesting
/// at most 128 deep. It is read in windows, so that memory does not grow with the text.
class ObjRefArrayJSON {
 public:
  /// `kind` names the part in errors, for instance "run list".
  explicit ObjRefArrayJSON(std::string_view kind);

  /// Replaces what was loaded before. Raises simulation_data_repository:sdr:InvalidSessionData with the kind, the
  /// element (from 1; 0 for the document) and the member or what is wrong. The stream's own errors pass through.
  void load(std::istream& stream);

  std::size_t size() const;

  /// A property of the element at `index`, from 0. A missing class name reads as "Set".
  std::int32_t getPropertyInt32(std::size_t index, std::string_view name) const;
  std::string getPropertyString(std::size_t index, std::string_view name) const;

 private:
  // The implementer's own.
};

}  // namespace orra
