#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace zip {

/// Deflates one raw stream, piece by piece, in constant memory.
class Deflater {
 public:
  /// Takes deflated bytes as they come out; may raise.
  using Sink = std::function<void(const char* data, std::size_t count)>;

  Deflater();
  ~Deflater();
  Deflater(Deflater&&) noexcept;
  Deflater& operator=(Deflater&&) noexcept;

  void deflate(const void* data, std::size_t count, const Sink& sink);
  /// Ends the stream: what was held back comes out. The deflater is of no further use.
  void finish(const Sink& sink);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zip
