#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "platform/repository/records.h"

namespace orra {

class Row;

/// A JSON array of objects ("object references") such as the run list and the signals parts. Loading
/// validates the whole text: well-formed JSON and UTF-8, an array of objects, every `id` an int32 that no
/// other element has, known members of the right kind and not twice, nesting at most 128 deep. What is not
/// known is ignored. A byte-order mark is passed over. Integers are written without fraction and exponent;
/// null is no value of any known member.
///
/// The text is read in windows of whole elements, so that memory does not grow with it: what stays is four
/// bytes an element, and class names. Whoever wants the elements' other members takes them while they pass.
class ObjRefArrayJSON {
 public:
  enum class Reading {
    AtOnce,    ///< `load` reads the stream to its end
    WithRows,  ///< `load` only takes the stream; forEachRow reads it, so that it is parsed once
  };

  /// Called with each element's index, from 0, and its members (platform/repository/json_rows.h), which are
  /// valid during the call. What it raises ends the loading.
  using RowVisitor = std::function<void(std::size_t index, const Row& row)>;

  /// An empty array. The kind says which members are known, and what errors call the part.
  explicit ObjRefArrayJSON(const PartKind& kind, Reading reading = Reading::AtOnce);
  ~ObjRefArrayJSON();
  ObjRefArrayJSON(ObjRefArrayJSON&&) noexcept;
  ObjRefArrayJSON& operator=(ObjRefArrayJSON&&) noexcept;

  /// Replaces what was loaded before. Raises simulation_data_repository:sdr:InvalidSessionData with the kind,
  /// the element (from 1; 0 for the whole part) and what is wrong with it, naming the member if it is one.
  /// The stream's own errors pass through.
  void load(std::istream& stream);
  /// Reads the stream that `load` took, which must still be there, and visits every element in order. Raises
  /// what loading raises; the visitor has then seen the elements before. Once for each `load`.
  void forEachRow(const RowVisitor& visit);

  /// Reads a stream to its end and hands over to `tell` everything that loading it would raise as
  /// InvalidSessionData, element by element, and what the visitor raises as that. Elements are visited as
  /// they would be; the array stays as it is.
  void audit(std::istream& stream, const RowVisitor& visit, const FaultVisitor& tell) const;

  /// The number of elements that were visited.
  std::size_t size() const;

  /// A property of the element at `index`, from 0: the `id` as int32, the class name as text. A missing class
  /// name reads as "Set". Anything else is the caller's fault and raises
  /// simulation_data_repository:sdr:InternalError.
  std::int32_t getPropertyInt32(std::size_t index, std::string_view name) const;
  std::string getPropertyString(std::size_t index, std::string_view name) const;

 private:
  struct References;

  PartKind kind_;
  Reading reading_;
  std::unique_ptr<References> references_;
  std::streambuf* source_ = nullptr;  ///< not read yet
};

}  // namespace orra
