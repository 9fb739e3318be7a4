#include "platform/zobs/exported_functions.h"

#include <algorithm>
#include <cstdint>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

namespace zobs {
namespace {

/// Where a loaded library keeps its dynamic symbols.
struct DynamicTables {
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const std::uint32_t* hash = nullptr;
  const std::uint32_t* gnuHash = nullptr;
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
std::size_t countByGnuHash(const std::uint32_t* table) {
  const std::uint32_t bucketCount = table[0], firstSymbol = table[1], filterWords = table[2];
  const std::uint32_t* const buckets = table + 4 + filterWords * (sizeof(ElfW(Addr)) / sizeof(std::uint32_t));
  const std::uint32_t* const chains = buckets + bucketCount;
  std::uint32_t last = bucketCount == 0 ? 0 : *std::max_element(buckets, buckets + bucketCount);
  if (last < firstSymbol) return firstSymbol;
  while ((chains[last - firstSymbol] & 1) == 0) ++last;
  return std::size_t{last} + 1;
}

std::size_t symbolCount(const DynamicTables& tables) {
  if (tables.hash != nullptr) return tables.hash[1];
  return tables.gnuHash != nullptr ? countByGnuHash(tables.gnuHash) : 0;
}

bool isExportedFunction(const ElfW(Sym) & symbol) {
  // The two halves of st_info are laid out alike in 32-bit and 64-bit files.
  const unsigned binding = ELF64_ST_BIND(symbol.st_info);
  return ELF64_ST_TYPE(symbol.st_info) == STT_FUNC && symbol.st_shndx != SHN_UNDEF &&
         (binding == STB_GLOBAL || binding == STB_WEAK);
}

}  // namespace

std::vector<std::string> exportedFunctions(void* library, std::string_view prefix) {
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) return {};
  const DynamicTables tables = tablesOf(*map);
  std::vector<std::string> found;
  if (tables.symbols == nullptr || tables.names == nullptr) return found;
  for (std::size_t i = 0, count = symbolCount(tables); i < count; ++i) {
    const std::string_view name = tables.names + tables.symbols[i].st_name;
    if (isExportedFunction(tables.symbols[i]) && name.starts_with(prefix)) found.emplace_back(name);
  }
  return found;
}

}  // namespace zobs
