#include "hosts/python/calls.h"

#include <atomic>
#include <mutex>
#include <new>

#include <pthread.h>

#include "hosts/python/values.h"
#include "platform/errors/package_errors.h"
#include "platform/opc/package.h"
#include "platform/text/conversion.h"

namespace tavlox::python {
namespace {

using foundation::core::except::Arguments;
using foundation::core::except::collection;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;

std::mutex turnLock;
std::atomic<int> generation = 0;
// Whether it is this thread's turn: work that it shares among processes forks in the middle of it.
thread_local bool hasTurn = false;

/// A value that nobody refers to any more, in a list of such. The list is a stack that every thread may push
/// onto without a lock: Python frees objects where waiting for a long call would stop all of its threads.
struct Discarded {
  zobs::Value value;
  Discarded* next = nullptr;
};
std::atomic<Discarded*> discarded = nullptr;

void destroyDiscarded() {
  Discarded* first = discarded.exchange(nullptr);
  while (first != nullptr) delete std::exchange(first, first->next);
}

/// Gives the lock back. What another thread discarded after the list was emptied could not be destroyed by
/// that thread, since the lock was taken; so the list is looked at once more.
void endTurn() {
  do {
    destroyDiscarded();
    turnLock.unlock();
  } while (discarded.load() != nullptr && turnLock.try_lock());
}

void discard(zobs::Value* value) {
  auto* const item = new Discarded{std::move(*value)};
  delete value;
  item->next = discarded.load();
  while (!discarded.compare_exchange_weak(item->next, item)) {
  }
  if (turnLock.try_lock()) endTurn();
}

/// Why a file cannot be read. The module leaves its path empty where not the file is at fault but a run that
/// was asked for and is not there.
std::optional<except_with_causes> reasonOfUnreadable(const std::u16string& path) {
  if (path.empty()) return except_with_causes("simulation_data_repository:sdr:NoSuchRun");
  if (!fl::i18n::is_well_formed(path)) return except_with_causes("fl:filesystem:ImpossibleName", {path});
  return opc::model::brokenRule(path);
}

/// Adds the reasons that the module keeps to itself.
void addReasons(except_with_causes& error) {
  if (error.GetID() == "tavlox:general:UnableToReadFile" && !error.GetArguments().empty()) {
    if (auto reason = reasonOfUnreadable(error.GetArguments().front())) error.addCause(*reason);
  }
  const auto& failedSave = opc::model::lastFailedSave();
  if (error.GetID() == "tavlox_io:general:UnableToClosePackage" && failedSave) error.addCause(*failedSave);
}

except_with_causes describeAny() {
  try {
    throw;
  } catch (const except_with_causes& error) {
    return error;
  } catch (const collection& errors) {
    return errors.extract_except_with_causes();
  } catch (const IUserException& error) {
    return except_with_causes(error.GetID(), error.GetArguments());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    return except_with_causes("tavlox:python:UnexpectedFailure", {fl::i18n::to_ustring_lossy(error.what())});
  } catch (...) {
    return except_with_causes("tavlox:python:UnexpectedFailure", {u"no reason is given"});
  }
}

Failure toFailure(const except_with_causes& error) {
  Failure failure{error.GetID(), error.GetArguments(), fl::i18n::to_ustring_lossy(error.GetMessageTxt()), {}};
  for (const except_with_causes& cause : error.causes()) failure.causes.push_back(toFailure(cause));
  return failure;
}

/// The arguments of `tavlox._errors.make`; a cause is such a tuple as well.
py::tuple toTuple(const Failure& failure) {
  py::list arguments, causes;
  for (const std::u16string& argument : failure.arguments) arguments.append(toPython(argument));
  for (const Failure& cause : failure.causes) causes.append(toTuple(cause));
  return py::make_tuple(failure.identifier, py::tuple(arguments), toPython(failure.message), causes);
}

}  // namespace

Turn::Turn() {
  turnLock.lock();
  hasTurn = true;
}
Turn::~Turn() {
  hasTurn = false;
  endTurn();
}

int processGeneration() { return generation; }

void prepareForForks() {
  static constexpr auto take = [] {
    if (!hasTurn) turnLock.lock();
  };
  static constexpr auto giveBack = [] {
    if (!hasTurn) turnLock.unlock();
  };
  pthread_atfork(take, giveBack, [] {
    ++generation;
    giveBack();
  });
}

SharedValue share(zobs::Value value) {
  const bool isObject = std::holds_alternative<zobs::COSInterfacePointer>(value);
  return {new zobs::Value(std::move(value)), [isObject, born = generation.load()](zobs::Value* last) {
            if (!isObject || born == generation) discard(last);
          }};
}

Failure describeFailure() {
  try {
    except_with_causes error = describeAny();
    addReasons(error);
    return toFailure(error);
  } catch (const std::bad_alloc&) {
    return {};
  }
}

void raise(const Failure& failure) {
  if (failure.identifier.empty()) throw std::bad_alloc();
  const py::object error = py::module_::import("tavlox._errors").attr("make")(*toTuple(failure));
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
  throw py::error_already_set();
}

}  // namespace tavlox::python
