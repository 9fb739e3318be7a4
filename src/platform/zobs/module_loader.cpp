#include "platform/zobs/module_loader.h"

#include <filesystem>
#include <memory>

#include <dlfcn.h>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"
#include "platform/zobs/exported_functions.h"

namespace zobs {
namespace {

using foundation::core::except::raise;
using EntryPoint = void (*)();

constexpr std::string_view kEntryPointPrefix = "CvInitialize_";

struct CloseLibrary {
  void operator()(void* library) const noexcept { dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

Library openLibrary(const std::u16string& path) {
  std::error_code failure;
  // Absolute, because the loader searches its own folders for a bare name.
  const std::filesystem::path file = std::filesystem::absolute(fl::i18n::to_string(path), failure);
  if (failure || !std::filesystem::exists(file, failure)) {
    raise("Corvan:ObjectSystem:CannotLoadModule", path, "there is no such file");
  }
  // Local, so that two modules may use one name for different things.
  Library library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (library) return library;
  const char* const reason = dlerror();
  raise("Corvan:ObjectSystem:CannotLoadModule", path,
        reason != nullptr ? reason : "the loader gives no reason");
}

EntryPoint entryPointOf(void* library, const std::u16string& path) {
  const std::vector<std::string> names = exportedFunctions(library, kEntryPointPrefix);
  if (names.empty()) {
    raise("Corvan:ObjectSystem:CannotLoadModule", path, "it exports no function named CvInitialize_...");
  }
  if (names.size() > 1) {
    raise("Corvan:ObjectSystem:CannotLoadModule", path,
          "it exports several initialisation functions, among them " + names[0] + " and " + names[1]);
  }
  void* const address = dlsym(library, names.front().c_str());
  if (address == nullptr)
    raise("Corvan:ObjectSystem:CannotLoadModule", path, names.front() + " cannot be found");
  return reinterpret_cast<EntryPoint>(address);
}

}  // namespace

void loadModule(const std::u16string& path) {
  Library library = openLibrary(path);
  const EntryPoint initialise = entryPointOf(library.get(), path);
  // Kept open for good before it runs: what it registers is used to the end of the process.
  static_cast<void>(library.release());
  initialise();
}

}  // namespace zobs
