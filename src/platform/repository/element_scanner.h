#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/repository/records.h"
#include "platform/repository/text_block.h"

namespace orra {

/// Finds where the elements of a JSON array end, without checking anything else: it knows texts, their
/// escapes and the nesting. Starts behind the array's opening bracket and takes the text in pieces of any
/// size, 64 bytes at a time. What it finds in a text that is not well-formed may be wrong; the parser then
/// refuses the pieces.
class ElementScanner {
 public:
  enum class Found {
    Nothing,  ///< the piece ends first
    End,      ///< a closing bracket of the array's own level
    TooDeep,  ///< an element is nested deeper than allowed
    TooMany,  ///< the first element has more tokens than allowed
  };
  struct Result {
    Found found;
    std::size_t offset;  ///< behind what was found, or the end of the piece
  };

  ElementScanner() = default;
  /// Of the first element so many values, separators and brackets are let pass.
  explicit ElementScanner(std::size_t mostTokens) : tokensLeft_(mostTokens) {}

  /// Calls `onSeparator` with the offset of each comma between two elements.
  template <class OnSeparator>
  Result scan(std::string_view piece, const OnSeparator& onSeparator) {
    for (std::size_t start = 0; start < piece.size(); start += kBlockBytes) {
      const std::string_view text = piece.substr(start, kBlockBytes);
      const TextBlock block(text);
      const bool wasInText = inText_;
      const std::uint64_t inTexts = textsOf(block, text.size());
      const std::uint64_t open = block.equal('{', ' ') & ~inTexts;  // '[' is '{' without that bit
      const std::uint64_t close = block.equal('}', ' ') & ~inTexts;
      if (tokensLeft_) {
        const std::size_t tokens = countTokens(block, text.size(), open | close, inTexts, wasInText);
        if (tokens > *tokensLeft_) return {Found::TooMany, start};
        *tokensLeft_ -= tokens;
      }
      std::uint64_t passed = 0;  // the bytes up to the bracket before
      for (std::uint64_t brackets = open | close;; brackets &= brackets - 1) {
        const std::uint64_t before = (brackets & -brackets) - 1;  // the bytes before the next bracket
        // Commas are asked for only here: most blocks lie within an element.
        if (depth_ == 0) {
          std::uint64_t commas = block.equal(',') & ~inTexts & before & ~passed;
          if (commas != 0) tokensLeft_.reset();
          for (; commas != 0; commas &= commas - 1) onSeparator(start + std::countr_zero(commas));
        }
        if (brackets == 0) break;
        passed = before;
        const std::size_t behind = start + std::countr_zero(brackets) + 1;
        if ((open & (before + 1)) != 0) {
          // The array itself is the first level.
          if (++depth_ >= kSessionLimits.nesting) return {Found::TooDeep, behind};
        } else if (depth_-- == 0) {
          return {Found::End, behind};
        }
      }
    }
    return {Found::Nothing, piece.size()};
  }

 private:
  /// Which bytes stand in texts, each with its opening quote and without its closing one. `count` bytes of
  /// the block are text; the state behind them is kept.
  std::uint64_t textsOf(const TextBlock& block, std::size_t count) {
    const std::uint64_t escaped = escapedBytes(block.equal('\\'), count);
    std::uint64_t inTexts = block.equal('"') & ~escaped;
    // Each bit becomes the parity of the quotes up to it, which is odd from an opening quote to its closing
    // one.
    inTexts ^= inTexts << 1;
    inTexts ^= inTexts << 2;
    inTexts ^= inTexts << 4;
    inTexts ^= inTexts << 8;
    inTexts ^= inTexts << 16;
    inTexts ^= inTexts << 32;
    // A text that began in an earlier block turns the parity over.
    if (inText_) inTexts = ~inTexts;
    inText_ = (inTexts >> (count - 1) & 1) != 0;
    return inTexts;
  }

  /// Which bytes are behind a backslash that is not itself behind one.
  std::uint64_t escapedBytes(std::uint64_t backslashes, std::size_t count) {
    std::uint64_t escaped = std::exchange(escaped_, false) ? 1 : 0;
    // One by one: backslashes are rare, and a run of them pairs up from its start.
    for (; backslashes != 0; backslashes &= backslashes - 1) {
      const std::uint64_t one = backslashes & -backslashes;
      if ((escaped & one) != 0) continue;
      escaped |= one << 1;
      if (one >> (count - 1) != 0) escaped_ = true;
    }
    return escaped;
  }

  /// What the parser needs memory for: brackets, commas, colons, and where texts and other values begin.
  std::size_t countTokens(const TextBlock& block, std::size_t count, std::uint64_t brackets,
                          std::uint64_t inTexts, bool wasInText) {
    const std::uint64_t marks = brackets | ((block.equal(',') | block.equal(':')) & ~inTexts);
    const std::uint64_t blank = block.equal(' ') | block.equal('\t') | block.equal('\n') | block.equal('\r');
    const std::uint64_t values = inTexts | ~(marks | blank);
    // Texts that are not JSON may follow each other without anything between them.
    const std::uint64_t starts =
        (values & ~(values << 1 | (wasInValue_ ? 1 : 0))) | (inTexts & ~(inTexts << 1 | (wasInText ? 1 : 0)));
    wasInValue_ = (values >> (count - 1) & 1) != 0;
    const int tokens = std::popcount(marks) + std::popcount(starts);
    return static_cast<std::size_t>(tokens);
  }

  int depth_ = 0;
  bool inText_ = false;
  bool escaped_ = false;
  bool wasInValue_ = false;
  std::optional<std::size_t> tokensLeft_;  ///< in the first element; nothing where they are not counted
};

}  // namespace orra
