#include "hosts/cli/entries.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "hosts/cli/module.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {

namespace fs = fl::filesystem;
using corvan::HostArray;

HostArray listing(const zobs::COSInterfacePointer& file, const std::u16string& search) {
  return std::get<HostArray>(call(file, "list", {search}));
}

std::vector<Entry> entriesOf(const HostArray& listing) {
  std::vector<Entry> entries;
  for (std::size_t i = 0; i < listing.elementCount(); ++i) {
    entries.push_back({std::u16string(listing.fieldAt(i, u"FullPath").text()),
                       std::u16string(listing.fieldAt(i, u"Name").text())});
  }
  return entries;
}

bool isPackagePath(const std::u16string& search) {
  return fs::is_absolute_path_when_expanded(fs::make_native_form(search));
}

std::vector<std::u16string> extractionTargets(const std::vector<Entry>& listed, const std::u16string& search,
                                              const std::u16string& outputFolder) {
  const bool keepsFolders = isPackagePath(search);
  std::vector<std::u16string> targets;
  for (const auto& [fullPath, name] : listed) {
    // An empty text and "*" list everything, but extract no more than what is called so.
    const bool isTaken = keepsFolders || (name == search && fullPath.starts_with(kUserFolder));
    if (!isTaken) continue;
    targets.push_back(fs::concatenate(outputFolder, fullPath.substr(keepsFolders ? 1 : kUserFolder.size())));
  }
  return targets;
}

std::vector<std::u16string> outsideUserFolder(const std::vector<Entry>& entries) {
  std::vector<std::u16string> outside;
  for (const Entry& entry : entries) {
    if (!entry.fullPath.starts_with(kUserFolder)) outside.push_back(entry.fullPath);
  }
  return outside;
}

std::vector<std::u16string> removedBetween(const std::vector<Entry>& before,
                                           const std::vector<Entry>& after) {
  std::set<std::u16string_view> left;
  for (const Entry& entry : after) left.insert(entry.fullPath);
  std::vector<std::u16string> removed;
  for (const Entry& entry : before) {
    if (!left.contains(entry.fullPath)) removed.push_back(entry.fullPath);
  }
  return removed;
}

std::u16string storedName(const std::u16string& packageFolder, const std::u16string& diskPath) {
  const std::u16string folder = packageFolder.empty() ? std::u16string(kUserFolder) : packageFolder;
  return fs::make_generic_form(fs::concatenate(folder, fs::extract_filename(diskPath)));
}

std::u16string namesInMessage(const std::vector<std::u16string>& names) {
  constexpr std::size_t kMostNamed = 5;
  std::u16string text;
  for (std::size_t i = 0; i < std::min(names.size(), kMostNamed); ++i) {
    if (i > 0) text += u", ";
    text += names[i];
  }
  if (names.size() > kMostNamed) {
    text += fl::i18n::to_ustring(fmt::format(" and {} more", names.size() - kMostNamed));
  }
  return text;
}

}  // namespace tavlox::cli
