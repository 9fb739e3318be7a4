#include "platform/opc/part_name.h"

#include <algorithm>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/text/conversion.h"

namespace opc::model {
namespace {

constexpr std::size_t kMaximalLength = std::size_t{16} * 1024;

bool equalsIgnoringCase(std::string_view text, std::string_view lower) {
  return percent::toLower(text) == lower;
}

/// Whether two neighbouring segments are what every relationship part ends in, "_rels/….rels".
bool isRelationshipPart(std::string_view folder, std::string_view file) {
  return file.size() >= 5 && folder.size() == 5 && equalsIgnoringCase(folder, "_rels") &&
         equalsIgnoringCase(file.substr(file.size() - 5), ".rels");
}

using Rule = fl::i18n::MessageId<1>;

/// The rule that a decoded name breaks, if it breaks one.
std::optional<Rule> brokenRule(std::string_view name) {
  if (name.empty() || name[0] != '/') return Rule("opc:name:NoLeadingSlash");
  if (name.find('\0') != std::string_view::npos) return Rule("opc:name:NulCharacter");
  if (name.find('\\') != std::string_view::npos) return Rule("opc:name:Backslash");
  std::string_view previous;
  for (std::size_t start = 1; start <= name.size();) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string_view segment = name.substr(start, end - start);
    if (segment.empty()) return Rule("opc:name:EmptySegment");
    if (segment.back() == '.') return Rule("opc:name:TrailingDot");
    if (isRelationshipPart(previous, segment)) return Rule("opc:name:RelationshipPart");
    previous = segment;
    start = end + 1;
  }
  return std::nullopt;
}

/// Whether a "%2F" or "%5C" hides a separator inside a segment.
bool hasEncodedSeparator(std::string_view encoded) {
  for (std::size_t at = encoded.find('%'); at != std::string_view::npos; at = encoded.find('%', at + 1)) {
    const std::string_view escape = encoded.substr(at, 3);
    if (escape == "%2F" || escape == "%2f" || escape == "%5C" || escape == "%5c") return true;
  }
  return false;
}

/// Nearly every name in a package is what we would write ourselves, of ASCII: then it need not be decoded and
/// encoded again to find its canonical form, and the rules can be checked on it as it stands.
bool isCanonical(std::string_view encoded) {
  return percent::isEncodedPrintable(encoded, percent::kPathLiterals) && !hasEncodedSeparator(encoded);
}

/// Of a canonical name.
std::u16string decodeCanonical(std::string_view encoded) {
  if (encoded.find('%') == std::string_view::npos) return {encoded.begin(), encoded.end()};
  const std::optional<std::string> narrow = percent::decode(encoded);
  return {narrow->begin(), narrow->end()};
}

std::string keyOf(const std::string& encoded) {
  const bool isKey = std::ranges::none_of(encoded, [](char c) { return c >= 'A' && c <= 'Z'; });
  return isKey ? std::string() : percent::toLower(encoded);
}

}  // namespace

/// A name that was looked at: either the rule it breaks or what it consists of.
struct PartName::Parsed {
  std::optional<Rule> rule;
  std::u16string text;
  std::string encoded;
};

PartName::PartName(Parsed&& parsed)
    : text_(std::move(parsed.text)), encoded_(std::move(parsed.encoded)), key_(keyOf(encoded_)) {}

PartName::PartName(std::u16string_view decoded) : text_(decoded) {
  if (!fl::i18n::is_well_formed(decoded)) raise("opc:name:LoneSurrogate", decoded);
  const std::string narrow = fl::i18n::to_string(decoded);
  if (const auto rule = brokenRule(narrow)) raise(*rule, decoded);
  encoded_ = percent::encode(narrow, percent::kPathLiterals);
  if (encoded_.size() > kMaximalLength) raise("opc:name:TooLong", decoded.substr(0, 64));
  key_ = keyOf(encoded_);
}

PartName::Parsed PartName::parse(std::string_view encoded) {
  const auto broken = [](Rule rule) { return Parsed{rule, {}, {}}; };
  if (encoded.size() <= kMaximalLength && isCanonical(encoded)) {
    if (const auto rule = brokenRule(encoded)) return broken(*rule);
    return {std::nullopt, decodeCanonical(encoded), std::string(encoded)};
  }
  // Three bytes are the longest encoding of one, so a longer text cannot have a short enough canonical form.
  if (encoded.size() > 3 * kMaximalLength) return broken(Rule("opc:name:TooLong"));
  if (hasEncodedSeparator(encoded)) return broken(Rule("opc:name:EncodedSlash"));
  const std::optional<std::string> narrow = percent::decode(encoded);
  if (!narrow) return broken(Rule("opc:name:BadPercentEncoding"));
  if (!fl::i18n::is_well_formed(*narrow)) return broken(Rule("opc:name:NotUtf8"));
  if (const auto rule = brokenRule(*narrow)) return broken(*rule);
  Parsed parsed{std::nullopt, fl::i18n::to_ustring(*narrow),
                percent::encode(*narrow, percent::kPathLiterals)};
  if (parsed.encoded.size() > kMaximalLength) return broken(Rule("opc:name:TooLong"));
  return parsed;
}

PartName PartName::fromEncoded(std::string_view encoded) {
  Parsed parsed = parse(encoded);
  if (parsed.rule) raise(*parsed.rule, encoded.substr(0, kMaximalLength));
  return PartName(std::move(parsed));
}

std::optional<PartName> PartName::tryFromEncoded(std::string_view encoded) {
  Parsed parsed = parse(encoded);
  if (parsed.rule) return std::nullopt;
  return PartName(std::move(parsed));
}

std::optional<std::u16string> PartName::tryDecode(std::string_view encoded) {
  if (encoded.size() <= kMaximalLength && isCanonical(encoded)) {
    if (brokenRule(encoded)) return std::nullopt;
    return decodeCanonical(encoded);
  }
  Parsed parsed = parse(encoded);
  if (parsed.rule) return std::nullopt;
  return std::move(parsed.text);
}

std::optional<std::string> PartName::tryKey(std::string_view encoded) {
  if (encoded.size() <= kMaximalLength && isCanonical(encoded)) {
    if (brokenRule(encoded)) return std::nullopt;
    return percent::toLower(encoded);
  }
  const Parsed parsed = parse(encoded);
  if (parsed.rule) return std::nullopt;
  return percent::toLower(parsed.encoded);
}

std::string PartName::relationshipPartName() const { return relationshipPartNameOf(encoded_); }

std::string relationshipPartNameOf(std::string_view encodedName) {
  const std::size_t slash = encodedName.rfind('/');
  if (slash == std::string_view::npos) return "/_rels/.rels";
  std::string name(encodedName.substr(0, slash + 1));
  return name.append("_rels/").append(encodedName.substr(slash + 1)).append(".rels");
}

std::optional<std::string> nameKey(std::string_view encoded) {
  if (encoded.empty() || encoded[0] != '/' || hasEncodedSeparator(encoded)) return std::nullopt;
  if (percent::isEncodedPrintable(encoded, percent::kPathLiterals)) return percent::toLower(encoded);
  const std::optional<std::string> narrow = percent::decode(encoded);
  if (!narrow || !fl::i18n::is_well_formed(*narrow)) return std::nullopt;
  return percent::toLower(percent::encode(*narrow, percent::kPathLiterals));
}

}  // namespace opc::model
