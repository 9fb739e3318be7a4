// Whole packages: any bytes, any extra fields, and any changes, compared with a model of the package.

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "platform/opc/package.h"
#include "platform/opc/package_index.h"
#include "tests/fuzz/target.h"
#include "tests/support/archive_builder.h"
#include "tests/support/package_fixture.h"

namespace {

using namespace opc::model;
using fuzz::require;
using fuzz::succeeds;
using opc::interfaces::OpenMode;

const support::TemporaryFolder& folder() {
  static const support::TemporaryFolder folder;
  return folder;
}

/// The data of every part that can be read, by key.
std::map<std::string, std::string> readAll(const Package& package) {
  std::map<std::string, std::string> all;
  for (const auto& indexed : package.index()->parts()) {
    const Part part = package.getPart(package.index()->nameOf(indexed));
    (void)part.getRelationships(ExcludeMode::None);
    succeeds([&] { all[part.getName().key()] = support::readAll(*part.getInputStream()); });
    const auto read = all.find(part.getName().key());
    require(read == all.end() || read->second.size() == part.getSize());
  }
  return all;
}

/// Deletes the first part, sets a property and adds a part with a link, as far as names and documents allow.
void change(Package& package) {
  const auto& parts = package.index()->parts();
  if (!parts.empty()) package.deletePart(package.index()->nameOf(parts.front()));
  succeeds([&] { package.setCoreProperty(CoreProperty::Description, u"fuzz"); });
  succeeds([&] {
    support::writePart(package.createPart(PartName(u"/fuzz/added"), ContentType(u"a/b"), {}), "x");
    package.createInternalRelationship(u"t", URI(u"/fuzz/added"), {});
  });
}

}  // namespace

/// They are refused, or what was opened can be read, changed, saved, and opened again with all else as it
/// was.
void package(std::string_view bytes) {
  folder().write("any.zip", bytes);
  zip::Limits limits;
  limits.inflatedBytesPerOpen = 1 << 24;
  limits.contentTypeBytes = limits.relationshipBytes = 1 << 20;
  Package package(folder().wide("any.zip"), limits);
  if (!succeeds([&] { package.open(OpenMode::Modify); })) return;
  const auto before = readAll(package);
  change(package);
  if (!succeeds([&] { package.close(); })) return require(folder().read("any.zip") == bytes);
  require(succeeds([&] { package.open(OpenMode::Read); }));
  const auto after = readAll(package);
  // The part that was deleted and the one of the core properties.
  require(std::ranges::count_if(before, [&](const auto& part) {
            const auto found = after.find(part.first);
            return found == after.end() || found->second != part.second;
          }) <= 2);
}

/// The first byte says which numbers the fields have to give, the second how many bytes stand in the local
/// header.
void extraFields(std::string_view bytes) {
  if (bytes.size() < 2 || bytes.size() > 0xFFFF) return;
  support::ArchiveBuilder archive;
  auto& entry = archive.add("a.txt", "some text");
  archive.add("[Content_Types].xml",
              "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
              "<Default Extension=\"txt\" ContentType=\"text/plain\"/></Types>");
  std::uint64_t* const numbers[] = {&entry.local.size, &entry.local.compressedSize, &entry.central.size,
                                    &entry.central.compressedSize, &entry.offset.emplace(0)};
  for (std::size_t bit = 0; bit < std::size(numbers); ++bit) {
    if ((bytes[0] >> bit & 1) != 0) *numbers[bit] = 0xFFFFFFFF;
  }
  entry.local.extra = bytes.substr(2, static_cast<unsigned char>(bytes[1]));
  entry.central.extra = bytes.substr(2 + entry.local.extra.size());
  package(archive.bytes());
}

namespace {

constexpr const char16_t* kNames[] = {u"/a", u"/A", u"/a/b", u"/b.txt", u"/user/\u00E4 (1)", u"/user/c"};

/// What a package has to hold: types and data of parts by key, targets of relationships by identifier.
struct Model {
  std::map<std::string, std::pair<std::u16string, std::string>> parts;
  std::map<std::string, std::u16string> links;
  std::optional<std::u16string> description;
  bool operator==(const Model&) const = default;
};

Model modelOf(const Package& package) {
  Model model{.description = package.getCoreProperty(CoreProperty::Description)};
  for (const char16_t* const text : kNames) {
    const PartName name(text);
    if (!package.hasPart(name)) continue;
    const Part part = package.getPart(name);
    model.parts[name.key()] = {part.getContentType().getSubType(), support::readAll(*part.getInputStream())};
  }
  for (const auto& link : package.getRelationshipsByType(u"t"))
    model.links[link.getID()] = link.getTarget().text();
  return model;
}

/// Makes one change to both. What the package refuses has to be what the model says it must.
void changeBoth(Package& package, Model& model, unsigned what, unsigned how) {
  const PartName name(kNames[how % std::size(kNames)]);
  const std::string& key = name.key();
  const std::string id = "x" + std::to_string(how % 4),
                    data(how * how % 9000, static_cast<char>('a' + how % 7));
  const std::u16string type = how % 2 == 0 ? u"plain" : u"b+\u00E4";
  if (what == 0) {
    const bool isFree = std::ranges::none_of(model.parts, [&](const auto& part) {
      return key == part.first || key.starts_with(part.first + "/") || part.first.starts_with(key + "/");
    });
    require(isFree == succeeds([&] {
              support::writePart(package.createPart(name, ContentType(u"x/" + type), {}), data);
            }));
    if (isFree) model.parts[key] = {type, data};
  } else if (what == 1) {
    const bool isThere = model.parts.contains(key);
    require(isThere == succeeds([&] { support::writePart(package.getPart(name), data); }));
    if (isThere) model.parts[key].second = data;
  } else if (what == 2) {
    package.deletePart(name);
    model.parts.erase(key);
  } else if (what == 3) {
    const bool isNew = model.links.try_emplace(id, name.text()).second;
    require(isNew == succeeds([&] { package.createInternalRelationship(u"t", URI(name.text()), id); }));
  } else if (what == 4) {
    package.deleteRelationship(id);
    model.links.erase(id);
  } else {
    package.setCoreProperty(CoreProperty::Description, type);
    model.description = type;
  }
}

}  // namespace

/// Two bytes each are a change, a save or the loss of what was not saved. What has changed is there before
/// the package is closed, and again when it is opened anew.
void packageChanges(std::string_view bytes) {
  const std::u16string path = folder().wide("changed.zip");
  std::optional<Package> package(path);
  package->create(Package::Existing::Replace);
  package->close();
  package->open(OpenMode::Modify);
  Model saved, model;
  for (std::size_t index = 0; index + 1 < std::min<std::size_t>(bytes.size(), 120); index += 2) {
    const unsigned what = static_cast<unsigned char>(bytes[index]) % 14;
    if (what < 12) {
      changeBoth(*package, model, what / 2, static_cast<unsigned char>(bytes[index + 1]));
      continue;
    }
    require(modelOf(*package) == model);
    if (what == 12) package->close();
    (what == 12 ? saved : model) = what == 12 ? model : saved;
    package.emplace(path).open(OpenMode::Modify);
    require(modelOf(*package) == model);
  }
  require(modelOf(*package) == model);
}
