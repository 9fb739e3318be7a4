#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct inflate_state;

namespace zip {

/// Inflates one raw deflate stream, piece by piece, in constant memory. Knows nothing of files and raises
/// nothing: whoever holds it knows the names that an error message needs.
class Inflater {
 public:
  enum class Outcome {
    Produced,    ///< at least one byte came out
    NeedsInput,  ///< nothing came out, and nothing will before `feed` gives more
    Ended,       ///< nothing came out: the stream has ended and all of it was handed out
    Broken,      ///< not a deflate stream; the inflater is of no further use
  };
  struct Step {
    Outcome outcome;
    std::size_t produced;
  };

  Inflater();
  ~Inflater();
  Inflater(Inflater&&) noexcept;
  Inflater& operator=(Inflater&&) noexcept;

  /// Gives the next compressed bytes, which must stay in place until a step answers NeedsInput or Ended. Only
  /// to be called first and after NeedsInput. At most 4 GiB - 1 bytes.
  void feed(const void* data, std::size_t count);

  /// Writes up to `count` bytes, which must not be 0: with no room the end of the stream would go unnoticed.
  Step inflate(void* into, std::size_t count);

  /// Bytes that were fed but lie behind the end of the stream. Valid after Ended.
  std::size_t unusedInput() const;

 private:
  std::unique_ptr<inflate_state> state_;
};

/// Goes on with a CRC-32 (the one of ZIP); starts from 0.
std::uint32_t checksum(std::uint32_t soFar, const void* data, std::size_t count);

}  // namespace zip
