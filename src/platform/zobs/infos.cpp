#include "platform/zobs/infos.h"

#include <cstdlib>

#include "platform/errors/exceptions.h"

void utFree(void* memory) noexcept { std::free(memory); }

namespace zobs {

// calloc, because utFree ends in free: a module and its host may have been built with different operators new
// and delete, but they share the C allocator.
void* HostAllocated::operator new(std::size_t size) {
  void* const memory = std::calloc(1, size);
  if (memory == nullptr) throw foundation::core::except::bad_alloc();
  return memory;
}

void HostAllocated::operator delete(void* memory) noexcept { utFree(memory); }

std::unique_ptr<COSMethodSignature> COSMethodSignature::createMethodSignature() {
  return std::make_unique<COSMethodSignature>();
}

// The dot separates the names of namespaces, so a name with one in it would be looked for in the wrong one.
void requireValidName(std::string_view name) {
  if (name.empty() || name.find('.') != std::string_view::npos) {
    foundation::core::except::raise("Corvan:ObjectSystem:InvalidName", name);
  }
}

// Here and not in the header, so that one library holds the type information that casts and catches compare.
COSMethodInfo::~COSMethodInfo() = default;
COSClassInfo::~COSClassInfo() = default;
COSNamespaceInfo::~COSNamespaceInfo() = default;

}  // namespace zobs
