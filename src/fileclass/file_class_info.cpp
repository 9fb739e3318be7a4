#include "fileclass/file_class_info.h"

#include "metadata/metadata_cache_impl.h"

namespace orra::tavloxio {
namespace {

/// Registers the properties. Names, order and descriptions are what hosts show to people and what scripts
/// rely on; the getters are those of the interface, so that the cast back from the untyped pointer fits.
void addProperties(zobs::COSClass& file) {
  using Cache = MetadataCache;
  constexpr char kText[] = "unicodeString", kInteger[] = "int32 scalar", kLogical[] = "logical scalar";
  constexpr int kGet = zobs::kPublicAccess, kSet = zobs::kNoAccess;
  constexpr std::uint32_t kFirst = 0x800, kFurther = 0x40;  // attribute words that the host takes as they are

  file.addProperty("Filename", kText, &Cache::getFilename, kGet, kSet, kFirst, u"TAVLOX file name");
  file.addProperty("Description", kText, &Cache::getDescription, kGet, kSet, kFirst,
                   u"TAVLOX file description");
  file.addProperty("LastModified", kText, &Cache::getLastModified, kGet, kSet, kFirst,
                   u"Last-modified timestamp");
  file.addProperty("Version", kText, &Cache::getVersion, kGet, kSet, kFirst, u"TAVLOX file version number");
  file.addProperty("Compression", kText, &Cache::getCompression, kGet, kSet, kFirst,
                   u"TAVLOX file compression type");
  file.addProperty("NumRuns", kInteger, &Cache::getNumRuns, kGet, kSet, kFirst,
                   u"Number of runs in TAVLOX file");
  file.addProperty("NumSignals", kInteger, &Cache::getNumSignals, kGet, kSet, kFurther,
                   u"Total number of signals in TAVLOX file");
  // "Ture" is the text the host shows.
  file.addProperty("ContainsView", kLogical, &Cache::getContainsView, kGet, kSet, kFurther,
                   u"Ture if TAVLOX file contains ORRA View");
  file.addProperty("ContainsComparison", kLogical, &Cache::getContainsComparison, kGet, kSet, kFurther,
                   u"Ture if TAVLOX file contains ORRA Comparison Run(s)");
}

}  // namespace

void TavloxIOFileClassInfo::defineMembers(zobs::COSClass& definedClass) {
  addMethods(definedClass);
  addProperties(definedClass);
}

void* TavloxIOFileClassInfo::createInstanceData() {
  // Converted here: methods and properties cast the untyped pointer back to the interface.
  MetadataCache* const cache = new MetadataCacheImpl;
  return cache;
}

// Through the interface as well: its destructor is virtual.
void TavloxIOFileClassInfo::destroyInstanceData(void* data) { delete static_cast<MetadataCache*>(data); }

}  // namespace orra::tavloxio
