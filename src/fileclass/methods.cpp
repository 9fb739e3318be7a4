// What each method does, and the table of their names and signatures. Each has an info class of its own,
// which is what the host registers.
//
// The file reads in the order of a call: one function for each method's work, which takes the object's cache
// and the inputs; the info classes, which find that cache and hand the result to the host; and at the end the
// table that gives each its name and its types. The object system has checked and converted the inputs
// against the table, so the functions take them out of their variants without asking.

#include <initializer_list>
#include <new>
#include <optional>

#include "assets/add.h"
#include "assets/extract.h"
#include "assets/searching.h"
#include "assets/user_files.h"
#include "fileclass/file_class_info.h"
#include "metadata/metadata_cache.h"
#include "package/session_parts.h"
#include "platform/zobs/namespace.h"
#include "queries/run_record.h"
#include "queries/signal_record.h"

namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using file::OpenMode;
using file::ScopedRef;
using Inputs = std::span<const zobs::Value>;

const std::u16string& textOf(const zobs::Value& input) { return std::get<std::u16string>(input); }

/// The instance data of the object, as TavloxIOFileClassInfo made it.
MetadataCache& metadataCacheOf(const zobs::Value& object) {
  const auto& pointer = std::get<zobs::COSInterfacePointer>(object);
  return *static_cast<MetadataCache*>(pointer->getInstanceData(pointer->getClass().getIdentifier()));
}

/// Asking for the file's name also makes sure that the file is still there, and raises FileNotFound
/// otherwise.
ScopedRef openPackage(OpenMode mode, MetadataCache& cache) { return {mode, *cache.getFilename()}; }

/// getAllRunIDs(obj): an N×1 int32 column.
HostArray getAllRunIDs(MetadataCache& cache, Inputs) { return runIdentifierColumn(cache); }

/// getRunInfo(obj, id): a 1×1 structure of 29 fields.
HostArray getRunInfo(MetadataCache& cache, Inputs inputs) {
  return runRecord(cache, toRunIdentifier(std::get<HostArray>(inputs[1])));
}

/// getAllSignalsInfo(obj): a 1×N structure array of 19 fields.
HostArray getAllSignalsInfo(MetadataCache& cache, Inputs) {
  return signalRecords([&] { return cache.lookupAllSignals(); });
}

/// getSignalInfoByName(obj, name): the same for the signals of one name.
HostArray getSignalInfoByName(MetadataCache& cache, Inputs inputs) {
  return signalRecords([&] { return cache.lookupSignalsByName(textOf(inputs[1])); });
}

/// Changes the object's package. Where memory runs out half-way nothing is saved: a part without its
/// relationship would be worse than no change.
template <class Change>
void changePackage(MetadataCache& cache, const Change& change) {
  const ScopedRef ref = openPackage(OpenMode::Modify, cache);
  try {
    change(ref);
  } catch (const std::bad_alloc&) {
    ref.package().closeWithoutSaving();
    throw;
  }
}

/// setFileDescription(obj, description): stores the text, unchanged, in the package.
void setFileDescription(MetadataCache& cache, Inputs inputs) {
  changePackage(cache, [&](const ScopedRef& ref) { ref.file().setDescription(textOf(inputs[1])); });
}

/// addFile(obj, diskPath, name/value pairs): stores a file, or the files of a folder, in the package.
void addFile(MetadataCache& cache, Inputs inputs) {
  // Before the package is opened, so that a misspelt option is reported whatever state the file is in.
  const part::OptionMap options = part::parseNameValueOptions(inputs);
  const part::AddOptions add{.Path = part::optionOf<std::u16string>(options, "Path"),
                             .Replace = part::optionOf<bool>(options, "Replace")};
  changePackage(cache, [&](const ScopedRef& ref) { part::addPathToPackage(ref, textOf(inputs[1]), add); });
}

/// getFile(obj, entry, name/value pairs): writes entries to disk and gives their paths, a 1×N cell array of
/// char rows.
HostArray getFile(MetadataCache& cache, Inputs inputs) {
  const part::OptionMap options = part::parseNameValueOptions(inputs);
  const ScopedRef ref = openPackage(OpenMode::Read, cache);
  const std::vector<std::u16string> written =
      part::copyFilesToDisk(ref, textOf(inputs[1]), part::optionOf<std::u16string>(options, "OutputPath"));
  HostArray paths = HostArray::cell(1, written.size());
  for (std::size_t i = 0; i < written.size(); ++i) paths.setCell(i, HostArray::charRow(written[i]));
  return paths;
}

/// list(obj[, search]): the entries that the search text selects, a 1×N structure array.
HostArray list(MetadataCache& cache, Inputs inputs) {
  // Set by their position below: a search for the name in every row would be felt in long lists.
  static constexpr std::u16string_view kFields[] = {u"FullPath", u"Name", u"Type"};
  part::ListOptions options;
  if (inputs.size() > 1) options.search = textOf(inputs[1]);
  const ScopedRef ref = openPackage(OpenMode::Read, cache);
  const std::vector<part::ListedEntry> entries = part::listFiles(ref, options);
  HostArray listing = HostArray::structure(1, entries.size(), kFields);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    listing.setField(i, 0, HostArray::charRow(entries[i].fullPath));
    listing.setField(i, 1, HostArray::charRow(entries[i].name));
    listing.setField(i, 2, HostArray::charRow(entries[i].type));
  }
  return listing;
}

/// deleteFile(obj, search): removes the entries that the search text selects.
void deleteFile(MetadataCache& cache, Inputs inputs) {
  changePackage(cache, [&](const ScopedRef& ref) { part::deleteFromPackage(ref, textOf(inputs[1])); });
}

/// What all infos of the module have in common: a name and a signature.
class ORRATavloxIOZOBSMethodInfo : public zobs::COSMethodInfo {
 public:
  /// The infos are made first and named then; null in between.
  const zobs::Interned* getName() const override { return name_ ? &name_ : nullptr; }
  const zobs::COSMethodSignature& getSignature() const override { return *signature_; }

  void setName(std::string_view name) { name_ = zobs::internal::makeInterned(name); }
  zobs::COSMethodSignature& signature() { return *signature_; }

 private:
  zobs::Interned name_;
  std::unique_ptr<zobs::COSMethodSignature> signature_ = zobs::COSMethodSignature::createMethodSignature();
};

/// One method call: finds the object's MetadataCache, runs `Work`, and gives its result, if it has one, to
/// the host as the one output.
template <auto Work>
class FileMethod : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int, Inputs inputs) final {
    MetadataCache& cache = metadataCacheOf(inputs[0]);
    if constexpr (std::is_void_v<decltype(Work(cache, inputs))>) {
      Work(cache, inputs);
    } else {
      outputs[0] = Work(cache, inputs);
      *producedOutputs = 1;
    }
  }
};

class TavloxIOFileGetAllRunIDs final : public FileMethod<getAllRunIDs> {};
class TavloxIOFileGetRunInfo final : public FileMethod<getRunInfo> {};
class TavloxIOFileGetAllSignalsInfo final : public FileMethod<getAllSignalsInfo> {};
class TavloxIOFileGetSignalInfoByName final : public FileMethod<getSignalInfoByName> {};
class TavloxIOFileAddFile final : public FileMethod<addFile> {};
class TavloxIOFileSetFileDescription final : public FileMethod<setFileDescription> {};
class TavloxIOFileGetFile final : public FileMethod<getFile> {};
class TavloxIOFileList final : public FileMethod<list> {};
class TavloxIOFileDeleteFile final : public FileMethod<deleteFile> {};

/// Binds a new File object, which is its first output, to the file named by the first input. If that raises,
/// the object system drops the object.
class TavloxIOFileConstructor final : public ORRATavloxIOZOBSMethodInfo {
 public:
  /// The output is the class's own type, which is known once the class holds the constructor.
  void attach(zobs::COSClass& holder) override {
    const std::string ownType = holder.getNamespace().getName().text() + ".File";
    signature().addOutputType(zobs::internal::makeInterned(ownType));
  }
  void invoke(zobs::COSClient&, int*, zobs::Value* outputs, int, Inputs inputs) override {
    metadataCacheOf(outputs[0]).setFilename(textOf(inputs[0]));
  }
};

/// getCompression(filename), a function of the namespace: the compression type that the recorder noted.
class TavloxIOGetCompression final : public ORRATavloxIOZOBSMethodInfo {
 public:
  void invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int, Inputs inputs) override {
    outputs[0] = readCompressionType(ScopedRef(OpenMode::Read, textOf(inputs[0])));
    *producedOutputs = 1;
  }
};

// The host's names of the types in the signatures.
constexpr std::string_view kFile = "tavlox.io.File", kText = "unicodeString", kAny = "any";

using TypeNames = std::initializer_list<std::string_view>;

/// A new info of class `Info`, for the host to own.
template <class Info>
Info* make(std::string_view name, TypeNames inputs, TypeNames outputs,
           std::optional<std::size_t> optionalInputs = std::nullopt) {
  using zobs::internal::makeInterned;
  auto info = std::make_unique<Info>();
  info->setName(name);
  for (const std::string_view type : inputs) info->signature().addInputType(makeInterned(type));
  for (const std::string_view type : outputs) info->signature().addOutputType(makeInterned(type));
  if (optionalInputs) info->signature().setOptionalInputCount(*optionalInputs);
  return info.release();
}

}  // namespace

// A trailing number says how many inputs may be left out: a name and its value are two. addFile takes two
// such pairs, "Path" and "Replace", and getFile one, "OutputPath".
void addMethods(zobs::COSClass& file) {
  file.addMethod(make<TavloxIOFileConstructor>("File", {kText}, {}));
  file.addMethod(make<TavloxIOFileGetAllRunIDs>("getAllRunIDs", {kFile}, {kAny}));
  file.addMethod(make<TavloxIOFileGetRunInfo>("getRunInfo", {kFile, kAny}, {kAny}));
  file.addMethod(make<TavloxIOFileGetAllSignalsInfo>("getAllSignalsInfo", {kFile}, {kAny}));
  file.addMethod(make<TavloxIOFileGetSignalInfoByName>("getSignalInfoByName", {kFile, kText}, {kAny}));
  file.addMethod(make<TavloxIOFileAddFile>("addFile", {kFile, kText, kText, kText, kText, kText}, {}, 4));
  file.addMethod(make<TavloxIOFileSetFileDescription>("setFileDescription", {kFile, kText}, {}, 0));
  file.addMethod(make<TavloxIOFileGetFile>("getFile", {kFile, kText, kText, kText}, {kAny}, 2));
  file.addMethod(make<TavloxIOFileList>("list", {kFile, kText}, {kAny}, 1));
  file.addMethod(make<TavloxIOFileDeleteFile>("deleteFile", {kFile, kText}, {}));
}

zobs::COSMethodInfo* makeGetCompression() {
  return make<TavloxIOGetCompression>("getCompression", {kText}, {kText});
}

}  // namespace orra::tavloxio
