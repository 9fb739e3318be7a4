#pragma once

namespace orra {

/// Finds where the elements of a JSON array end, without checking anything else: it knows texts, their
/// escapes and the nesting. Starts behind the array's opening bracket and takes the text in pieces of any
/// size.
class ElementScanner {
 public:
  enum class Found {
    Nothing,    ///< the piece ends first
    Separator,  ///< the comma between two elements
    End,        ///< a closing bracket of the array's own level
    TooDeep,    ///< an element is nested deeper than allowed
  };

  /// Moves `at` past what was found, or to `end`.
  Found advance(const char*& at, const char* end);

 private:
  bool skipText(const char*& at, const char* end);

  int depth_ = 0;
  bool inText_ = false;
  bool escaped_ = false;
};

}  // namespace orra
