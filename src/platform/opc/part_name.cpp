#include "platform/opc/part_name.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/text/conversion.h"

namespace opc::model {
namespace {

// Less than ZIP can store, more than file systems take for a path.
constexpr std::size_t kMaximalLength = std::size_t{16} * 1024;

enum class Rule {
  None,
  LoneSurrogate,
  LeadingSlash,
  NulCharacter,
  Backslash,
  AboveRoot,
  EmptySegment,
  TrailingDot,
  RelationshipPart,
  TooLong,
};

/// The first rule that a decoded name breaks: those of ECMA-376 part 2, and no NUL and no backslash, which
/// other programs would take for an end and for a slash.
Rule brokenRule(std::string_view name) {
  if (name.empty() || name[0] != '/') return Rule::LeadingSlash;
  if (name.find('\0') != std::string_view::npos) return Rule::NulCharacter;
  if (name.find('\\') != std::string_view::npos) return Rule::Backslash;
  // A segment that ends in a dot as well, but whoever wrote it wants to know what it really is.
  if (name.starts_with("/../")) return Rule::AboveRoot;
  std::string_view previous;
  for (std::size_t start = 1; start <= name.size();) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string_view segment = name.substr(start, end - start);
    if (segment.empty()) return Rule::EmptySegment;
    if (segment.back() == '.') return Rule::TrailingDot;
    if (isRelationshipPart(previous, segment)) return Rule::RelationshipPart;
    previous = segment;
    start = end + 1;
  }
  return Rule::None;
}

void raiseIfBroken(Rule rule, std::u16string_view name) {
  switch (rule) {
    case Rule::None:
      return;
    case Rule::LoneSurrogate:
      raise("opc:name:LoneSurrogate", name);
    case Rule::LeadingSlash:
      raise("opc:name:NoLeadingSlash", name);
    case Rule::NulCharacter:
      raise("opc:name:NulCharacter", name);
    case Rule::Backslash:
      raise("opc:name:Backslash", name);
    case Rule::AboveRoot:
      raise("opc:name:AboveRoot", name);
    case Rule::EmptySegment:
      raise("opc:name:EmptySegment", name);
    case Rule::TrailingDot:
      raise("opc:name:TrailingDot", name);
    case Rule::RelationshipPart:
      raise("opc:name:RelationshipPart", name);
    case Rule::TooLong:
      // Its beginning is enough to recognise it by.
      raise("opc:name:TooLong", name.substr(0, 64));
  }
}

/// Whether a "%2F" or "%5C" hides a separator inside a segment.
bool hasEncodedSeparator(std::string_view encoded) {
  for (std::size_t at = encoded.find('%'); at != std::string_view::npos; at = encoded.find('%', at + 1)) {
    const std::string_view escape = encoded.substr(at, 3);
    if (escape == "%2F" || escape == "%2f" || escape == "%5C" || escape == "%5c") return true;
  }
  return false;
}

/// Whether an escape is one of printable ASCII that has no letter, and is needed.
bool isDigitEscape(std::string_view escape) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (escape.size() < 3 || !isDigit(escape[1]) || !isDigit(escape[2])) return false;
  const char byte = static_cast<char>((escape[1] - '0') * 16 + (escape[2] - '0'));
  return byte >= ' ' && !percent::kPathLiterals.contains(byte);
}

/// Nearly every name in a package is what we would write ourselves, of ASCII: then it need not be decoded and
/// encoded again to find its canonical form, and the rules can be checked on it as it stands.
bool isCanonical(std::string_view encoded) {
  return encoded.size() <= kMaximalLength && percent::isEncodedPrintable(encoded, percent::kPathLiterals) &&
         !hasEncodedSeparator(encoded);
}

/// What stands for itself in every key, wherever it stands.
constexpr std::array<bool, 256> kPlain = [] {
  std::array<bool, 256> plain{};
  for (int c = 0; c < 256; ++c) plain[c] = percent::kSegmentLiterals.contains(static_cast<char>(c));
  for (int c = 'A'; c <= 'Z'; ++c) plain[c] = false;
  plain['_'] = false;
  return plain;
}();

/// Whether the name of an entry is the key of a part but for the leading "/", in one pass over it, as far as
/// that is easily told: false says nothing. Escapes have only digits here, and nothing contains "_rels".
bool isPlainKey(std::string_view name) {
  if (name.size() >= kMaximalLength) return false;
  // With an empty segment, or one that ends in a dot.
  const auto endsBadly = [&](std::size_t end) {
    return end == 0 || name[end - 1] == '/' || name[end - 1] == '.';
  };
  const auto isSpecial = [](unsigned char c) { return !kPlain[c]; };
  for (std::size_t at = 0;; ++at) {
    at = static_cast<std::size_t>(std::find_if(name.begin() + at, name.end(), isSpecial) - name.begin());
    if (at == name.size()) break;
    const char c = name[at];
    if (c == '%' && isDigitEscape(name.substr(at, 3))) {
      at += 2;
    } else if (c == '/' ? endsBadly(at) : c != '_' || name.substr(at + 1, 4) == "rels") {
      return false;
    }
  }
  return !endsBadly(name.size());
}

/// The form in which a decoded name is stored, or the rule that the name breaks.
Rule encode(std::string_view decoded, std::string& encoded) {
  if (!fl::i18n::is_well_formed(decoded)) return Rule::LoneSurrogate;
  if (const Rule rule = brokenRule(decoded); rule != Rule::None) return rule;
  encoded = percent::encode(decoded, percent::kPathLiterals);
  return encoded.size() > kMaximalLength ? Rule::TooLong : Rule::None;
}

/// The same for a decoded name in UTF-16.
Rule encode(std::u16string_view decoded, std::string& encoded) {
  if (!fl::i18n::is_well_formed(decoded)) return Rule::LoneSurrogate;
  return encode(fl::i18n::to_string(decoded), encoded);
}

/// A stored name as we would write it ourselves; nothing if no part may be called so.
std::optional<std::string> canonical(std::string_view encoded) {
  if (isCanonical(encoded)) {
    return brokenRule(encoded) == Rule::None ? std::optional(std::string(encoded)) : std::nullopt;
  }
  // Three bytes are the longest encoding of one, so a longer text cannot have a short enough canonical form.
  if (encoded.size() > 3 * kMaximalLength || hasEncodedSeparator(encoded)) return std::nullopt;
  const std::optional<std::string> narrow = percent::decode(encoded);
  std::string form;
  if (!narrow || encode(*narrow, form) != Rule::None) return std::nullopt;
  return form;
}

/// Of a canonical name.
std::u16string textOf(std::string_view canonical) {
  // Without an escape a canonical name is plain ASCII.
  if (canonical.find('%') == std::string_view::npos) return {canonical.begin(), canonical.end()};
  return fl::i18n::to_ustring(*percent::decode(canonical));
}

}  // namespace

PartName::PartName(std::u16string_view decoded) {
  std::string encoded;
  raiseIfBroken(encode(decoded, encoded), decoded);
  *this = PartName(std::u16string(decoded), std::move(encoded));
}

std::optional<PartName> PartName::tryFromText(std::u16string_view decoded) {
  std::string encoded;
  if (encode(decoded, encoded) != Rule::None) return std::nullopt;
  return PartName(std::u16string(decoded), std::move(encoded));
}

PartName::PartName(std::u16string text, std::string encoded) {
  std::string key = percent::toLower(encoded);
  texts_ = std::make_shared<const Texts>(Texts{std::move(text), std::move(encoded), std::move(key)});
}

std::optional<PartName> PartName::tryFromEncoded(std::string_view encoded) {
  std::optional<std::string> form = canonical(encoded);
  if (!form) return std::nullopt;
  std::u16string text = textOf(*form);
  return PartName(std::move(text), *std::move(form));
}

std::optional<std::u16string> PartName::tryDecode(std::string_view encoded) {
  const std::optional<std::string> form = canonical(encoded);
  return form ? std::optional(textOf(*form)) : std::nullopt;
}

std::optional<std::string> PartName::tryKey(std::string_view encoded) {
  const std::optional<std::string> form = canonical(encoded);
  return form ? std::optional(percent::toLower(*form)) : std::nullopt;
}

bool PartName::isKeyOfEntry(std::string_view name) {
  if (isPlainKey(name)) return true;
  const std::string encoded = std::string("/").append(name);
  return tryKey(encoded) == encoded;
}

std::string relationshipPartNameOf(std::string_view encodedName) {
  const std::size_t slash = encodedName.rfind('/');
  // Names of parts are absolute, so only the empty one of the package has no slash.
  if (slash == std::string_view::npos) return "/_rels/.rels";
  std::string name(encodedName.substr(0, slash + 1));
  return name.append("_rels/").append(encodedName.substr(slash + 1)).append(".rels");
}

bool isRelationshipPart(std::string_view folder, std::string_view file) {
  constexpr std::string_view kFolder = "_rels", kExtension = ".rels";
  return file.size() >= kExtension.size() && percent::equalsIgnoringCase(folder, kFolder) &&
         percent::equalsIgnoringCase(file.substr(file.size() - kExtension.size()), kExtension);
}

std::optional<std::string> nameKey(std::string_view encoded) {
  if (encoded.empty() || encoded[0] != '/' || hasEncodedSeparator(encoded)) return std::nullopt;
  if (percent::isEncodedPrintable(encoded, percent::kPathLiterals)) return percent::toLower(encoded);
  const std::optional<std::string> narrow = percent::decode(encoded);
  if (!narrow || !fl::i18n::is_well_formed(*narrow)) return std::nullopt;
  return percent::toLower(percent::encode(*narrow, percent::kPathLiterals));
}

}  // namespace opc::model
