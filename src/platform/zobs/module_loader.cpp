// The name of a module's entry point is not known before it is loaded: only its beginning is. The dynamic
// loader looks names up but does not list them, so the library's own symbol table is read, in memory, where
// the loader has mapped it (System V ABI, chapter 5, "Program Loading and Dynamic Linking"). Nothing of the
// file is parsed: what is read here has been accepted by the loader already.

#include "platform/zobs/module_loader.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include "platform/errors/exceptions.h"
#include "platform/errors/free_with.h"
#include "platform/errors/installation.h"
#include "platform/text/conversion.h"

namespace zobs {
namespace {

using foundation::core::except::FreeWith;
using foundation::core::except::raise;
using EntryPoint = void (*)();
using Library = std::unique_ptr<void, FreeWith<dlclose>>;

/// Where a loaded library keeps its dynamic symbols.
struct DynamicTables {
  const ElfW(Sym) * symbols = nullptr;     // their number stands nowhere; it follows from a hash table
  const char* names = nullptr;             // NUL-terminated, at the offsets that the symbols give
  const std::uint32_t* hash = nullptr;     // the table of the ABI: two counts, buckets, chains
  const std::uint32_t* gnuHash = nullptr;  // its successor; a library has one of the two, or both
};

template <class T>
const T* tableAt(const link_map& map, ElfW(Addr) address) {
  // Most machines' loaders relocate these addresses in place; some leave them relative to the library.
  if (address < map.l_addr) address += map.l_addr;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader gives addresses as numbers
  return reinterpret_cast<const T*>(address);
}

DynamicTables tablesOf(const link_map& map) {
  DynamicTables tables;
  for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
    const ElfW(Addr) address = entry->d_un.d_ptr;
    if (entry->d_tag == DT_SYMTAB) tables.symbols = tableAt<ElfW(Sym)>(map, address);
    if (entry->d_tag == DT_STRTAB) tables.names = tableAt<char>(map, address);
    if (entry->d_tag == DT_HASH) tables.hash = tableAt<std::uint32_t>(map, address);
    if (entry->d_tag == DT_GNU_HASH) tables.gnuHash = tableAt<std::uint32_t>(map, address);
  }
  return tables;
}

/// The GNU table does not say how many symbols there are: the last one ends the chain of the highest bucket.
/// The table holds four words (number of buckets, first symbol that is hashed, number of filter words, a
/// shift), the filter in words of an address's size, the buckets, and one chain word for each hashed symbol,
/// whose lowest bit says that a chain ends there.
std::size_t countByGnuHash(const std::uint32_t* table) {
  const std::uint32_t bucketCount = table[0], firstSymbol = table[1], filterWords = table[2];
  const std::uint32_t* const buckets = table + 4 + filterWords * (sizeof(ElfW(Addr)) / sizeof(std::uint32_t));
  const std::uint32_t* const chains = buckets + bucketCount;
  std::uint32_t last = bucketCount == 0 ? 0 : *std::max_element(buckets, buckets + bucketCount);
  // All buckets are empty: the library exports nothing, and its symbols are those that it imports.
  if (last < firstSymbol) return firstSymbol;
  while ((chains[last - firstSymbol] & 1) == 0) ++last;
  return std::size_t{last} + 1;
}

std::size_t symbolCount(const DynamicTables& tables) {
  // Its second word is the length of the chains, which have one element for every symbol.
  if (tables.hash != nullptr) return tables.hash[1];
  return tables.gnuHash != nullptr ? countByGnuHash(tables.gnuHash) : 0;
}

/// The table also lists what the library imports; such symbols belong to no section of it.
bool isExportedFunction(const ElfW(Sym) & symbol) {
  // The two halves of st_info are laid out alike in 32-bit and 64-bit files.
  const unsigned binding = ELF64_ST_BIND(symbol.st_info);
  return ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF &&
         (binding == STB_GLOBAL || binding == STB_WEAK);
}

/// The functions that the library itself exports under a name that begins with "CvInitialize_".
std::vector<std::string> entryPointNames(void* library) {
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return {};
  const DynamicTables tables = tablesOf(*map);
  if (tables.symbols == nullptr || tables.names == nullptr) return {};
  std::vector<std::string> found;
  for (std::size_t i = 0, count = symbolCount(tables); i < count; ++i) {
    const std::string_view name = tables.names + tables.symbols[i].st_name;
    if (isExportedFunction(tables.symbols[i]) && name.starts_with("CvInitialize_")) found.emplace_back(name);
  }
  return found;
}

Library openLibrary(const std::u16string& path) {
  std::error_code failure;
  // Absolute, because the loader searches its own folders for a bare name.
  const std::filesystem::path file = std::filesystem::absolute(fl::i18n::to_string(path), failure);
  if (failure || !std::filesystem::exists(file, failure)) {
    raise("Corvan:ObjectSystem:CannotLoadModule", path, "there is no such file");
  }
  // Local, so that two modules may use one name for different things. Now, so that a function that is missing
  // is reported here and does not end the process at its first call.
  Library library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (library) return library;
  // Once only: asking for the text also clears it.
  const char* const reason = dlerror();
  raise("Corvan:ObjectSystem:CannotLoadModule", path,
        reason != nullptr ? reason : "the loader gives no reason");
}

EntryPoint entryPointOf(void* library, const std::u16string& path) {
  const std::vector<std::string> names = entryPointNames(library);
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

std::u16string installedModule(std::string_view name) {
  const std::filesystem::path libraries = fl::i18n::libraryFolder();
  if (libraries.empty()) return {};
  return fl::i18n::to_ustring((libraries / "tavlox" / std::string(name).append(".so")).string());
}

void loadModule(const std::u16string& path) {
  Library library = openLibrary(path);
  const EntryPoint initialise = entryPointOf(library.get(), path);
  // Kept open for good before it runs: what it registers is used to the end of the process.
  static_cast<void>(library.release());
  initialise();
}

}  // namespace zobs
