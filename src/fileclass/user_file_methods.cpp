#include "fileclass/user_file_methods.h"

#include "assets/add.h"
#include "assets/delete.h"
#include "assets/extract.h"
#include "assets/list.h"
#include "assets/options.h"
#include "package/scoped_ref.h"

namespace orra::tavloxio {

using corvan::HostArray;
using file::OpenMode;
using file::ScopedRef;

namespace {

HostArray cellOf(const std::vector<std::u16string>& texts) {
  HostArray cell = HostArray::cell(1, texts.size());
  for (std::size_t i = 0; i < texts.size(); ++i) cell.setCell(i, HostArray::charRow(texts[i]));
  return cell;
}

HostArray structureOf(const std::vector<part::ListedEntry>& entries) {
  static constexpr std::u16string_view kFields[] = {u"FullPath", u"Name", u"Type"};
  HostArray listing = HostArray::structure(1, entries.size(), kFields);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    listing.setField(i, 0, HostArray::charRow(entries[i].fullPath));
    listing.setField(i, 1, HostArray::charRow(entries[i].name));
    listing.setField(i, 2, HostArray::charRow(entries[i].type));
  }
  return listing;
}

}  // namespace

void TavloxIOFileAddFile::invoke(zobs::COSClient&, int*, zobs::Value*, int,
                                 std::span<const zobs::Value> inputs) {
  const part::OptionMap options = part::parseNameValueOptions(inputs);
  const part::AddOptions add{.path = part::textOption(options, "Path"),
                             .replace = part::logicalOption(options, "Replace")};
  const ScopedRef ref(OpenMode::Modify, *metadataCacheOf(inputs[0]).getFilename());
  part::addPathToPackage(ref, textOf(inputs[1]), add);
}

void TavloxIOFileGetFile::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                                 std::span<const zobs::Value> inputs) {
  const part::OptionMap options = part::parseNameValueOptions(inputs);
  const ScopedRef ref(OpenMode::Read, *metadataCacheOf(inputs[0]).getFilename());
  outputs[0] = cellOf(part::copyFilesToDisk(ref, textOf(inputs[1]), part::textOption(options, "OutputPath")));
  *producedOutputs = 1;
}

void TavloxIOFileList::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                              std::span<const zobs::Value> inputs) {
  part::ListOptions options;
  if (inputs.size() > 1) options.search = textOf(inputs[1]);
  const ScopedRef ref(OpenMode::Read, *metadataCacheOf(inputs[0]).getFilename());
  outputs[0] = structureOf(part::listFiles(ref, options));
  *producedOutputs = 1;
}

void TavloxIOFileDeleteFile::invoke(zobs::COSClient&, int*, zobs::Value*, int,
                                    std::span<const zobs::Value> inputs) {
  const ScopedRef ref(OpenMode::Modify, *metadataCacheOf(inputs[0]).getFilename());
  part::deleteFromPackage(ref, textOf(inputs[1]));
}

}  // namespace orra::tavloxio
