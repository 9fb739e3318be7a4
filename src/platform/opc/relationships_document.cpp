#include "platform/opc/relationships_document.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <utility>

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/errors/package_errors.h"
#include "platform/opc/xml_writer.h"
#include "platform/text/conversion.h"
#include "platform/text/text_hash.h"

namespace opc {
namespace {

using model::Relationship;
using model::TargetMode;
using model::URI;

constexpr std::string_view kNamespace = "http://schemas.openxmlformats.org/package/2006/relationships";
constexpr std::string_view kIdPrefix = "rId";
constexpr std::size_t kBytesPerItem = 80;  // of a usual document, a guess to reserve by

std::string numberedId(std::uint64_t number) { return std::string(kIdPrefix).append(std::to_string(number)); }

/// The N of "rIdN", written as `numberedId` writes it; 0 for any other text.
std::uint64_t numberOf(std::string_view id) {
  const std::size_t digits = kIdPrefix.size();
  // "rId07" is another ID than "rId7" and says nothing about it.
  if (!id.starts_with(kIdPrefix) || id.size() == digits || id[digits] == '0') return 0;
  std::uint64_t number = 0;
  const char* end = id.data() + id.size();
  const auto [stop, error] = std::from_chars(id.data() + digits, end, number);
  return error == std::errc() && stop == end ? number : 0;
}

struct Range {
  char32_t first, last;
};

// XML 1.0, fifth edition, [4] and [4a], without the colon.
constexpr Range kStart[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x2FF},    {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F},
    {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr Range kFurther[] = {{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

template <std::size_t N>
bool isIn(const Range (&ranges)[N], char32_t character) {
  return std::any_of(ranges, ranges + N,
                     [=](Range range) { return range.first <= character && character <= range.last; });
}

/// Takes the character at `at`. The text is well-formed, so a first surrogate has its second behind it.
char32_t nextCharacter(const std::u16string& text, std::size_t& at) {
  const char16_t unit = text[at++];
  if (unit < 0xD800 || unit > 0xDBFF) return unit;
  return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (text[at++] - 0xDC00);
}

bool isAsciiStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }

bool isAsciiFurther(char c) { return isAsciiStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

/// Whether a UTF-8 text is a name without a colon (Namespaces in XML 1.0, NCName), which every ID must be.
bool isNcName(std::string_view text) {
  // The names that documents really have, of which there may be hundreds of thousands.
  if (!text.empty() && isAsciiStart(text[0]) && std::ranges::all_of(text, isAsciiFurther)) return true;
  if (text.empty() || !fl::i18n::is_well_formed(text)) return false;
  const std::u16string wide = fl::i18n::to_ustring(text);
  for (std::size_t at = 0; at < wide.size();) {
    const bool isFirst = at == 0;
    const char32_t character = nextCharacter(wide, at);
    if (!isIn(kStart, character) && (isFirst || !isIn(kFurther, character))) return false;
  }
  return true;
}

}  // namespace

std::optional<std::size_t> RelationshipsDocument::IdIndex::find(std::string_view id, const auto& idAt) const {
  const std::uint64_t number = numberOf(id);
  if (number < byNumber_.size() && byNumber_[number] != 0) return byNumber_[number] - 1;
  return others_.size() == 0 ? std::nullopt : others_.find(id, idAt);
}

bool RelationshipsDocument::IdIndex::add(std::size_t index, std::uint64_t number, const auto& idAt) {
  // A number far above the count would take memory for those that nobody has.
  if (number == 0 || number > 2 * size() + 64) return others_.add(index, idAt);
  while (byNumber_.size() <= number) byNumber_.push_back(0);
  // It was such a number if it is among the others.
  if (byNumber_[number] != 0 || (others_.size() != 0 && others_.find(idAt(index), idAt))) return false;
  byNumber_[number] = static_cast<std::uint32_t>(index + 1);
  ++numbered_;
  return true;
}

void RelationshipsDocument::IdIndex::remove(std::string_view id, const auto& idAt) {
  const std::uint64_t number = numberOf(id);
  if (number >= byNumber_.size() || byNumber_[number] == 0) return others_.remove(id, idAt);
  byNumber_[number] = 0;
  --numbered_;
}

/// Fills a list from its document, item by item (ECMA-376 part 2, relationships markup).
class RelationshipsDocument::Reader : public xml::ListReader {
 public:
  /// Whether the document can be changed afterwards.
  enum class Text { Kept, Dropped };
  Reader(RelationshipsDocument& document, std::string_view packagePath, const zip::Limits& limits, Text text)
      : ListReader(kNamespace),
        document_(document),
        package_(packagePath),
        part_(document.partName()),
        limits_(limits),
        keepsText_(text == Text::Kept) {}

  const std::string& part() const { return part_; }

 private:
  void readRoot(const xml::Name& name, const xml::Attributes& attributes) override {
    if (!name.is(kNamespace, "Relationships")) {
      refuse("opc:relationships:WrongRoot", package_, part_, name.local, name.space);
    }
    refuseBase(attributes);
  }

  void readItem(const xml::Name& name, const xml::Attributes& attributes) override {
    if (name.local != "Relationship") refuseElement(name);
    // Asked for each item, so that a document of too many does not take their memory first.
    if (document_.size() >= limits_.relationships) {
      refuse("opc:relationships:TooMany", package_, part_, limits_.relationships);
    }
    refuseBase(attributes);
    const TargetMode targetMode = mode(attributes);
    // An external relationship is never a part, with or without a target; there are some without.
    const std::string_view target = targetMode == TargetMode::External
                                        ? attributes.find("Target").value_or("")
                                        : required(attributes, "Target");
    const std::size_t type = sharedType(required(attributes, "Type"));
    const std::string_view written = required(attributes, "Id");
    const std::uint64_t number = numberOf(written);
    // What is numbered is a name.
    if (number == 0 && !isNcName(written)) refuse("opc:relationships:BadId", package_, part_, written);
    if (document_.append(written, number, type, target, targetMode)) return;
    refuse("opc:relationships:DuplicateId", package_, part_, written);
  }

  void endItem(xml::Span item) override {
    if (keepsText_) document_.written_.push_back(item);
  }
  void endRoot(xml::ListText text) override { document_.text_ = std::move(text); }

  /// Equal texts give one type, because many thousand relationships have the same; most often that of the one
  /// before.
  std::size_t sharedType(std::string_view written) {
    if (!types_.empty() && written == lastType_->first) return lastType_->second;
    lastType_ = types_.find(written);
    if (lastType_ == types_.end()) {
      lastType_ = types_.emplace(written, document_.types_.size()).first;
      document_.types_.push_back(std::make_shared<const std::u16string>(fl::i18n::to_ustring(written)));
    }
    return lastType_->second;
  }

  void refuseElement(const xml::Name& name) const override {
    refuse("opc:relationships:UnexpectedElement", package_, part_, name.local);
  }
  void refuseText() const override { refuse("opc:relationships:UnexpectedText", package_, part_); }

  void refuseBase(const xml::Attributes& attributes) const {
    if (attributes.find("base", xml::kXmlNamespace)) refuse("opc:relationships:XmlBase", package_, part_);
  }

  std::string_view required(const xml::Attributes& attributes, std::string_view name) const {
    const auto value = attributes.find(name);
    if (!value) refuse("opc:relationships:MissingAttribute", package_, part_, name);
    return *value;
  }

  TargetMode mode(const xml::Attributes& attributes) const {
    const std::string_view written = attributes.find("TargetMode").value_or("Internal");
    if (written == "Internal") return TargetMode::Internal;
    if (written == "External") return TargetMode::External;
    refuse("opc:relationships:BadTargetMode", package_, part_, written);
  }

  RelationshipsDocument& document_;
  const std::string_view package_;
  const std::string part_;
  const zip::Limits& limits_;
  const bool keepsText_;
  using Types = boost::unordered_flat_map<std::string, std::size_t, fl::i18n::TextHash, std::equal_to<>>;
  Types types_;
  Types::const_iterator lastType_;
};

RelationshipsDocument::RelationshipsDocument(std::string source)
    : source_(std::move(source)), text_(xml::ListText::empty("Relationships", kNamespace)) {}

RelationshipsDocument RelationshipsDocument::parse(std::string_view bytes, std::string source,
                                                   std::string_view packagePath, const zip::Limits& limits) {
  RelationshipsDocument document(std::move(source));
  Reader reader(document, packagePath, limits, Reader::Text::Kept);
  document.reserve(bytes.size());
  document.written_.reserve(bytes.size() / kBytesPerItem);
  xml::read(bytes, {packagePath, reader.part()}, limits.xmlDepth, reader);
  return document;
}

RelationshipsDocument RelationshipsDocument::read(const xml::Source& bytes, std::size_t count,
                                                  std::string source, std::string_view packagePath,
                                                  const zip::Limits& limits) {
  RelationshipsDocument document(std::move(source));
  Reader reader(document, packagePath, limits, Reader::Text::Dropped);
  document.reserve(count);
  xml::read(bytes, {packagePath, reader.part()}, limits.xmlDepth, reader);
  return document;
}

void RelationshipsDocument::reserve(std::size_t bytes) {
  byId_.reserve(bytes / kBytesPerItem);
  items_.reserve(bytes / kBytesPerItem);
  texts_.reserve(bytes / 2);  // the rest is markup
}

std::string RelationshipsDocument::partName() const { return model::relationshipPartNameOf(source_); }

Relationship RelationshipsDocument::linkOf(const Item& item) const {
  const std::string_view target = texts_.at(item.target());
  return {std::string(texts_.at(item.id())), types_[item.type],
          item.mode == TargetMode::Internal ? URI::resolved(source_, target)
                                            : URI::asWritten(fl::i18n::to_ustring(target)),
          item.mode};
}

std::vector<Relationship> RelationshipsDocument::relationships(model::ExcludeMode exclude) const {
  std::vector<Relationship> links;
  links.reserve(size());
  for (const Item& item : items_) {
    const bool isExternal = item.mode == TargetMode::External;
    if (item.isRemoved || (isExternal && exclude == model::ExcludeMode::External)) continue;
    links.push_back(linkOf(item));
  }
  return links;
}

std::vector<Relationship> RelationshipsDocument::relationshipsByType(std::u16string_view type) const {
  // Each text is compared once: few types have many thousand relationships.
  std::vector<bool> isOfType;
  for (const Relationship::Type& one : types_) isOfType.push_back(*one == type);
  std::vector<Relationship> links;
  for (const Item& item : items_) {
    if (!item.isRemoved && isOfType[item.type]) links.push_back(linkOf(item));
  }
  return links;
}

std::optional<Relationship> RelationshipsDocument::find(std::string_view id) const {
  const auto index = byId_.find(id, idAt());
  if (!index) return std::nullopt;
  return linkOf(items_[*index]);
}

Relationship RelationshipsDocument::add(std::u16string_view type, const URI& target, std::string_view id,
                                        std::string_view packagePath, TargetMode mode,
                                        const model::PartName* name) {
  const bool isExternal = mode == TargetMode::External;
  const std::string itsTarget = isExternal ? xml::toXmlText(target.text(), packagePath)
                                : name     ? name->encoded()
                                           : model::PartName(target.text()).encoded();
  // Checked now, not when the document is written: by then it is too late to tell who asked.
  const std::string narrowType = xml::toXmlText(type, packagePath);
  if (!id.empty() && !isNcName(id)) raise("opc:relationships:IdIsNoName", packagePath, id);
  if (byId_.find(id, idAt())) raise("opc:relationships:IdIsTaken", packagePath, id);
  // Only now: a refused request must not use up a number.
  const std::string itsId = id.empty() ? lowestFreeId() : std::string(id);
  // Whoever adds many adds them with one type, whose text they then share.
  if (types_.empty() || *types_.back() != type) {
    types_.push_back(std::make_shared<const std::u16string>(type));
  }
  const xml::WrittenAttribute attributes[] = {
      {"Id", itsId}, {"Type", narrowType}, {"Target", itsTarget}, {"TargetMode", "External"}};
  const std::string written =
      xml::writeElement(text_.prefixed("Relationship"), std::span(attributes, isExternal ? 4 : 3));
  written_.push_back(text_.append(written));
  append(itsId, numberOf(itsId), types_.size() - 1, itsTarget, mode);
  // A target that was checked resolves to itself.
  return {itsId, types_.back(), target, mode};
}

bool RelationshipsDocument::remove(std::string_view id) {
  const auto index = byId_.find(id, idAt());
  if (!index) return false;
  const std::uint64_t number = numberOf(id);
  // From `nextNumber_` on all numbers are tried anyway.
  if (number != 0 && number < nextNumber_) freedNumbers_.insert(number);
  // The text of all other items stays as it was.
  text_.cut(written_[*index]);
  byId_.remove(id, idAt());
  items_[*index].isRemoved = true;
  return true;
}

bool RelationshipsDocument::append(std::string_view id, std::uint64_t number, std::size_t type,
                                   std::string_view target, TargetMode mode) {
  const auto narrow = [](std::size_t value) { return static_cast<std::uint32_t>(value); };
  // The index compares IDs by their position, so the item must stand there before the index is asked.
  items_.push_back(
      {narrow(texts_.add(id).begin), narrow(id.size()), narrow(target.size()), narrow(type), mode});
  texts_.add(target);
  const bool isNew = byId_.add(items_.size() - 1, number, idAt());
  if (!isNew) items_.pop_back();
  return isNew;
}

std::string RelationshipsDocument::lowestFreeId() {
  // All of these are below `nextNumber_`, so the lowest is among them if there is one.
  while (!freedNumbers_.empty()) {
    std::string id = numberedId(freedNumbers_.extract(freedNumbers_.begin()).value());
    // Somebody may have asked for it by name since it was freed.
    if (!byId_.find(id, idAt())) return id;
  }
  while (true) {
    std::string id = numberedId(nextNumber_++);
    if (!byId_.find(id, idAt())) return id;
  }
}

}  // namespace opc
