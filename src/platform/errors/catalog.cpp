// A message's text is found by its language, its catalog and its key. Each catalog file is read once, when
// the first message of it is needed, and kept; most runs show no error and read none. A message must come out
// in any case, so nothing here fails for a reason of its own: a text that is not found gives way to the next
// language, and at last to the identifier and the arguments.

#include "platform/errors/catalog.h"

#include <algorithm>
#include <cctype>
#include <locale>
#include <map>
#include <optional>
#include <unordered_map>

#include <simdjson.h>

#include "platform/errors/installation.h"
#include "platform/text/conversion.h"

namespace fl::i18n {
namespace {

using Texts = std::unordered_map<std::string, std::u16string>;

/// A file that is missing or broken gives no texts: a message must never fail because of its wording.
Texts readTexts(const std::filesystem::path& file) {
  Texts texts;
  simdjson::dom::parser parser;
  simdjson::dom::object root;
  if (parser.load(file.string()).get(root) != simdjson::SUCCESS) return texts;
  for (const auto& [key, value] : root) {
    std::string_view text;
    if (value.get(text) == simdjson::SUCCESS) texts.emplace(key, to_ustring_lossy(text));
  }
  return texts;
}

/// The text of one language, or null. A file that gave no texts is not looked for again.
const std::u16string* findText(const std::string& language, const std::string& catalog,
                               const std::string& key) {
  static std::map<std::pair<std::string, std::string>, Texts> read;
  const auto [entry, isNew] = read.try_emplace({language, catalog});
  if (isNew) entry->second = readTexts(catalogFolder() / language / (catalog + ".json"));
  const auto text = entry->second.find(key);
  return text == entry->second.end() ? nullptr : &text->second;
}

/// The text in the best language that has one. What stands before the first colon names the catalog.
const std::u16string* findText(std::string_view identifier) {
  const std::size_t colon = identifier.find(':');
  if (colon == std::string_view::npos) return nullptr;
  const std::string catalog(identifier.substr(0, colon)), key(identifier.substr(colon + 1));
  for (const std::string& language : languagesOf(std::locale().name())) {
    if (const std::u16string* text = findText(language, catalog, key)) return text;
  }
  return nullptr;
}

/// The number of the placeholder that starts at `at` ("{0}" to "{9}"), if one does.
std::optional<std::size_t> placeholderAt(std::u16string_view text, std::size_t at) {
  if (text.size() - at < 3 || text[at] != u'{' || text[at + 2] != u'}') return std::nullopt;
  if (text[at + 1] < u'0' || text[at + 1] > u'9') return std::nullopt;
  return text[at + 1] - u'0';
}

// A message is for reading. What is not quoted is a reason, or several names, and may be longer.
constexpr std::size_t kLongestName = 200, kLongestText = 2000;

/// The text with its placeholders filled. What an argument contains is not looked at again, so a name like
/// "{1}" stays a name. A placeholder without an argument gives nothing.
std::u16string fill(std::u16string_view text, const std::vector<std::u16string>& arguments) {
  std::u16string filled;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto placeholder = placeholderAt(text, at);
    if (!placeholder) {
      filled += text[at];
      continue;
    }
    // Texts put names in quotes.
    const bool isName = at > 0 && text[at - 1] == u'"';
    if (*placeholder < arguments.size()) {
      filled += shortened(arguments[*placeholder], isName ? kLongestName : kLongestText);
    }
    at += 2;
  }
  return filled;
}

/// What stands for a message that no catalog has.
std::u16string withoutText(std::string_view identifier, const std::vector<std::u16string>& arguments) {
  std::u16string text = to_ustring_lossy(identifier);
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    text.append(i == 0 ? u": " : u", ").append(shortened(arguments[i], kLongestName));
  }
  return text;
}

}  // namespace

std::u16string shortened(std::u16string_view text, std::size_t longest) {
  if (text.size() <= longest) return std::u16string(text);
  std::u16string_view head = text.substr(0, longest / 2), tail = text.substr(text.size() - longest / 2 + 1);
  // The cut may fall between the two halves of a surrogate pair; a half that is left alone goes as well.
  const auto isHalf = [](char16_t unit, char16_t first) { return (unit & 0xFC00) == first; };
  if (isHalf(head.back(), 0xD800)) head.remove_suffix(1);
  if (isHalf(tail.front(), 0xDC00)) tail.remove_prefix(1);
  return std::u16string(head).append(u"…").append(tail);
}

const std::filesystem::path& catalogFolder() {
  static const std::filesystem::path folder = [] {
    const std::filesystem::path libraries = libraryFolder();
    return libraries.empty() ? libraries : libraries.parent_path() / "share" / "tavlox" / "catalog";
  }();
  return folder;
}

std::vector<std::string> languagesOf(std::string_view localeName) {
  std::vector<std::string> languages;
  const std::string_view region = localeName.substr(0, localeName.find_first_of(".@;"));
  const std::string_view language = region.substr(0, region.find('_'));
  // A locale's name may hold anything; only what looks like a language names a folder.
  const bool usable = !language.empty() && std::all_of(region.begin(), region.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_';
  });
  if (usable) languages = {std::string(region), std::string(language)};
  languages.emplace_back("en");
  return languages;
}

std::u16string catalogText(std::string_view identifier, const std::vector<std::u16string>& arguments) {
  const std::u16string* text = findText(identifier);
  return text != nullptr ? fill(*text, arguments) : withoutText(identifier, arguments);
}

}  // namespace fl::i18n
