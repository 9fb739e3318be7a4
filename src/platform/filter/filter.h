#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Conditions on records, as people write them: SolverName = 'ode4' and StopTime > 10. One condition gives
/// the same answer for a record in memory and, as SQL, for a row of a database.
namespace tavlox::filter {

/// A field that conditions may name, and what its values are.
enum class Kind { Text, Number };
struct Field {
  std::u16string_view name;
  Kind kind;
};

/// A record's value: nothing, a number or a text. NaN is nothing.
using Value = std::variant<std::monostate, double, std::u16string>;

/// The number that the whole text is, blanks around it left out; nothing for any other text and for NaN.
/// "1e3", "-.5" and "inf" are numbers. SQL made by a filter calls it as the function number_of.
std::optional<double> numberOf(std::string_view narrow);

/// A condition that was understood.
///
///     condition:  FIELD = VALUE   and likewise != < <= > >=
///                 FIELD like 'GLOB'   with * for any characters and ? for one
///                 FIELD in (VALUE, VALUE, …)
///                 FIELD is empty
///                 condition and condition, condition or condition, not condition, (condition)
///
/// `not` may also stand before like, in and empty; it binds closer than `and`, which binds closer than `or`.
/// A value is a number, or a text in single or double quotes, in which a doubled quote stands for one. The
/// value says how to compare: with a number, texts count as the number that they are, and one that is none
/// equals no number. What is empty differs from every number and is neither below nor above one. Fields are
/// written as they are, the words of the language in any case.
class Filter {
 public:
  /// Raises filter:where:Unexpected, with what stands where something else is needed, and UnknownField,
  /// NotANumber, NotAText and TooLong. The names of the fields must outlive the filter.
  Filter(std::u16string_view condition, std::span<const Field> fields);

  /// Whether a record meets it. `valueOf` is asked for fields by their index.
  bool matches(const std::function<Value(std::size_t field)>& valueOf) const;

  /// An SQL condition with a `?` for each of the values, in their order. `columns` names the column of each
  /// field: texts in columns of texts, numbers in columns of numbers, in either NULL for what is empty.
  struct Sql {
    std::string condition;
    std::vector<Value> values;
  };
  Sql sql(std::span<const std::string> columns) const;

  enum class Operation { And, Or, Not, Equal, Unequal, Below, AtMost, Above, AtLeast, Like, In, Empty };
  /// Operands are those of and, or and not; field and values those of the others.
  struct Node {
    Operation operation;
    std::vector<Node> operands;
    std::size_t field = 0;
    std::vector<Value> values;
  };

 private:
  Node root_;
};

}  // namespace tavlox::filter
