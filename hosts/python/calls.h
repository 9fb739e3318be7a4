#pragma once

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

#include "platform/zobs/object.h"

/// How this host enters the platform and its modules: one thread at a time, with the interpreter's lock
/// released, and with every failure turned into a Python exception.
///
/// Modules have no locks, and host values count their references unguarded. So nothing of theirs is called,
/// copied or destroyed except by whoever holds the host's one lock. No thread waits for the interpreter's
/// lock while it holds that one, so the two cannot block each other.
namespace tavlox::python {

namespace py = pybind11;

/// Holds the host's lock. Before it gives it back it destroys the values that were let go meanwhile.
class Turn {
 public:
  Turn();
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
};

/// A value that came from a module or is meant for one. References to it are counted by threads of any kind;
/// the value itself is destroyed in somebody's turn.
using SharedValue = std::shared_ptr<const zobs::Value>;
SharedValue share(zobs::Value value);

/// A number that grows in the child of a fork. Objects of an earlier one belong to the parent: their data
/// stands for files that only the parent may close and remove, so in the child they are never destroyed.
int processGeneration();

/// Once, before the first turn: has a fork wait for the end of the turn that is under way, so that the child
/// finds the module between two calls and the lock free.
void prepareForForks();

/// An error of the platform or a module with everything that Python is told of it.
struct Failure {
  std::string identifier;  ///< empty when memory was out, which has no identifier
  std::vector<std::u16string> arguments;
  std::u16string message;
  std::vector<Failure> causes;
};

/// The exception that is being handled. To be asked within a turn: texts are read from the catalog.
Failure describeFailure();
/// Raises what the module `tavlox._errors` makes of it, or MemoryError.
[[noreturn]] void raise(const Failure& failure);

/// The result of `work`, which runs in a turn of its own, without the interpreter's lock.
template <class Work>
auto inTurn(const Work& work) {
  std::optional<std::invoke_result_t<Work>> result;
  std::optional<Failure> failure;
  {
    const py::gil_scoped_release released;
    const Turn turn;
    try {
      result = work();
    } catch (...) {
      failure = describeFailure();
    }
  }
  if (failure) raise(*failure);
  return std::move(*result);
}

}  // namespace tavlox::python
