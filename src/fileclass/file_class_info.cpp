#include "fileclass/file_class_info.h"

#include "fileclass/methods.h"
#include "fileclass/query_methods.h"
#include "fileclass/user_file_methods.h"
#include "metadata/metadata_cache_impl.h"
#include "platform/zobs/access.h"
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

void addProperties(zobs::COSClass& file) {
  using Cache = MetadataCache;
  constexpr char kInteger[] = "int32 scalar", kLogical[] = "logical scalar";
  constexpr int kGet = zobs::kPublicAccess, kSet = zobs::kNoAccess;
  constexpr std::uint32_t kFirst = 0x800, kFurther = 0x40;  // attribute words that the host takes as they are

  file.addProperty("Filename", kTextType, &Cache::getFilename, kGet, kSet, kFirst, u"TAVLOX file name");
  file.addProperty("Description", kTextType, &Cache::getDescription, kGet, kSet, kFirst,
                   u"TAVLOX file description");
  file.addProperty("LastModified", kTextType, &Cache::getLastModified, kGet, kSet, kFirst,
                   u"Last-modified timestamp");
  file.addProperty("Version", kTextType, &Cache::getVersion, kGet, kSet, kFirst,
                   u"TAVLOX file version number");
  file.addProperty("Compression", kTextType, &Cache::getCompression, kGet, kSet, kFirst,
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
  MetadataCache* cache = new MetadataCacheImpl;
  return cache;  // as the interface: methods and properties cast back to that
}

void TavloxIOFileClassInfo::destroyInstanceData(void* data) { delete static_cast<MetadataCache*>(data); }

}  // namespace orra::tavloxio
