#pragma once

#include <cstdint>

namespace zobs {

/// Work that waits until it is first needed and then is done once. While it runs it counts as done, so that
/// it may look at what it has made so far. Work that raises is undone and waits again: half of it must not
/// pass for the whole.
class FirstUse {
 public:
  template <class Work, class Undo>
  void run(Work work, Undo undo) {
    if (state_ != State::Waiting) return;
    state_ = State::Begun;
    try {
      work();
    } catch (...) {
      undo();
      state_ = State::Waiting;
      throw;
    }
  }

 private:
  enum class State : std::uint8_t { Waiting, Begun };
  State state_ = State::Waiting;
};

}  // namespace zobs
