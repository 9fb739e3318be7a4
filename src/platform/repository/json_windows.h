#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/repository/element_scanner.h"

namespace orra {

/// Levels of nesting that a part may have, its array included.
inline constexpr int kMaximalDepth = 128;

/// Gives the next bytes: up to `count` into `into`; 0 at the end.
using ReadBytes = std::function<std::size_t(char* into, std::size_t count)>;

/// Cuts the text of a JSON array into windows: arrays of some of its elements, in order, about 1 MiB each. If
/// every window is well-formed then so is the whole text, since windows are joined by the commas they were
/// cut at. Raises InvalidSessionData for what goes wrong between and around elements; a byte-order mark is
/// passed over.
class JsonWindows {
 public:
  struct Window {
    std::string_view text;  ///< "[…]", followed by as much readable memory as the parser asks for
    bool mayBeEmpty;        ///< whether the whole array may be empty
  };

  JsonWindows(ReadBytes read, std::string_view kind);

  /// Nothing behind the last window; by then the source was read to its end. A window lasts until the next
  /// call. `elementsBefore` is the number of elements of earlier windows, for errors.
  std::optional<Window> next(std::size_t elementsBefore);

 private:
  enum class Place { BeforeArray, InArray, BehindArray };

  std::optional<Window> cut();
  bool readOn();
  void openArray();
  void requireNothingBehind();

  ReadBytes read_;
  std::string_view kind_;
  ElementScanner scanner_;
  Place place_ = Place::BeforeArray;
  std::vector<char> buffer_;
  // Within the buffer: the window starts at 0 with its bracket, is scanned up to `scanned_`, filled up to
  // `filled_`, and the last separator lies at `separator_` (0 for none).
  std::size_t scanned_ = 0, filled_ = 0, separator_ = 0;
  std::size_t separators_ = 0;  ///< found in this window so far
  std::size_t consumed_ = 0;    ///< bytes of the window that was given out last
  std::size_t elementsBefore_ = 0;
  bool first_ = true;
};

}  // namespace orra
