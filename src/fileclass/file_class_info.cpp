#include "fileclass/file_class_info.h"

#include "fileclass/methods.h"
#include "metadata/metadata_cache_impl.h"
#include "platform/zobs/class.h"

namespace orra::tavloxio {
namespace {

void addMethods(zobs::COSClass& file) {
  file.addMethod(makeMethodInfo<TavloxIOFileConstructor>("File", {kTextType}, {}));
  file.addMethod(makeMethodInfo<TavloxIOFileGetAllRunIDs>("getAllRunIDs", {kFileType}, {kAnyType}));
  file.addMethod(makeMethodInfo<TavloxIOFileGetRunInfo>("getRunInfo", {kFileType, kAnyType}, {kAnyType}));
  file.addMethod(makeMethodInfo<TavloxIOFileGetAllSignalsInfo>("getAllSignalsInfo", {kFileType}, {kAnyType}));
  file.addMethod(makeMethodInfo<TavloxIOFileGetSignalInfoByName>("getSignalInfoByName",
                                                                 {kFileType, kTextType}, {kAnyType}));
  file.addMethod(makeMethodInfo<TavloxIOFileAddFile>(
      "addFile", {kFileType, kTextType, kTextType, kTextType, kTextType, kTextType}, {}, 4));
  file.addMethod(
      makeMethodInfo<TavloxIOFileSetFileDescription>("setFileDescription", {kFileType, kTextType}, {}, 0));
  file.addMethod(makeMethodInfo<TavloxIOFileGetFile>("getFile", {kFileType, kTextType, kTextType, kTextType},
                                                     {kAnyType}, 2));
  file.addMethod(makeMethodInfo<TavloxIOFileList>("list", {kFileType, kTextType}, {kAnyType}, 1));
  file.addMethod(makeMethodInfo<TavloxIOFileDeleteFile>("deleteFile", {kFileType, kTextType}, {}));
}

template <class Result>
struct Property {
  const char* name;
  Result (MetadataCache::*getter)();
  std::uint32_t attributes;
  const char16_t* description;
};

template <class Result>
void addProperty(zobs::COSClass& file, const char* type, const Property<Result>& property) {
  // Access 0 to get; set access 2, which nobody has: the properties are read-only.
  file.addProperty(property.name, type, property.getter, 0, 2, property.attributes, property.description);
}

void addProperties(zobs::COSClass& file) {
  using Text = const std::u16string*;
  using Cache = MetadataCache;
  constexpr char kInteger[] = "int32 scalar", kLogical[] = "logical scalar";
  constexpr std::uint32_t kFirst = 0x800, kFurther = 0x40;  // attribute words that the host takes as they are

  addProperty<Text>(file, kTextType, {"Filename", &Cache::getFilename, kFirst, u"TAVLOX file name"});
  addProperty<Text>(file, kTextType,
                    {"Description", &Cache::getDescription, kFirst, u"TAVLOX file description"});
  addProperty<Text>(file, kTextType,
                    {"LastModified", &Cache::getLastModified, kFirst, u"Last-modified timestamp"});
  addProperty<Text>(file, kTextType, {"Version", &Cache::getVersion, kFirst, u"TAVLOX file version number"});
  addProperty<Text>(file, kTextType,
                    {"Compression", &Cache::getCompression, kFirst, u"TAVLOX file compression type"});
  addProperty<int>(file, kInteger, {"NumRuns", &Cache::getNumRuns, kFirst, u"Number of runs in TAVLOX file"});
  addProperty<int>(
      file, kInteger,
      {"NumSignals", &Cache::getNumSignals, kFurther, u"Total number of signals in TAVLOX file"});
  // "Ture" is the text the host shows.
  addProperty<bool>(
      file, kLogical,
      {"ContainsView", &Cache::getContainsView, kFurther, u"Ture if TAVLOX file contains ORRA View"});
  addProperty<bool>(file, kLogical,
                    {"ContainsComparison", &Cache::getContainsComparison, kFurther,
                     u"Ture if TAVLOX file contains ORRA Comparison Run(s)"});
}

}  // namespace

void TavloxIOFileClassInfo::defineMembers(zobs::COSClass& definedClass) {
  addMethods(definedClass);
  addProperties(definedClass);
}

void* TavloxIOFileClassInfo::createInstanceData() {
  MetadataCache* cache = new MetadataCacheImpl;
  return cache;  // as the interface: methods and properties cast back to that
}

void TavloxIOFileClassInfo::destroyInstanceData(void* data) { delete static_cast<MetadataCache*>(data); }

}  // namespace orra::tavloxio
