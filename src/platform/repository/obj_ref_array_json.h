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
/// bytes an element, and class names. Whoever wants the elements' other members takes them while they pass
/// (`load` with a visitor), or has the text kept (`Keep::Rows`: compressed, and past some MiB in an unlinked
/// file) and walks over it afterwards; the second walk parses again, in windows, too.
class ObjRefArrayJSON {
 public:
  enum class Keep {
    References,  ///< what size, getPropertyInt32 and getPropertyString answer from
    Rows,        ///< also what forEachRow walks over
  };

  /// Called with each element's index, from 0, and its members (platform/repository/json_rows.h), which are
  /// valid during the call. What it raises ends the loading.
  using RowVisitor = std::function<void(std::size_t index, const Row& row)>;

  explicit ObjRefArrayJSON(const PartKind& kind, Keep keep = Keep::References);
  ~ObjRefArrayJSON();
  ObjRefArrayJSON(ObjRefArrayJSON&&) noexcept;
  ObjRefArrayJSON& operator=(ObjRefArrayJSON&&) noexcept;

  /// Replaces what was loaded before, if nothing is raised. Raises
  /// simulation_data_repository:sdr:InvalidSessionData with the kind, the element (from 1; 0 for the whole
  /// part) and what is wrong with it, naming the member if it is one. The stream's own errors pass through.
  /// The stream is read to its end.
  void load(std::istream& stream);
  /// The visitor sees an element before later ones are read: an error may come after it has seen some.
  void load(std::istream& stream, const RowVisitor& visit);

  std::size_t size() const;

  /// A property of the element at `index`, from 0: the `id` as int32, the class name as text. A missing class
  /// name reads as "Set". Anything else is the caller's fault and raises
  /// simulation_data_repository:sdr:InternalError.
  std::int32_t getPropertyInt32(std::size_t index, std::string_view name) const;
  std::string getPropertyString(std::size_t index, std::string_view name) const;

  /// Every element of a loaded array that keeps rows, in order.
  void forEachRow(const RowVisitor& visit) const;

 private:
  struct References;
  struct Text;

  PartKind kind_;
  Keep keep_;
  std::unique_ptr<References> references_;
  std::unique_ptr<Text> text_;  ///< null unless rows are kept
};

}  // namespace orra
