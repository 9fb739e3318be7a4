// How a failure becomes a message. `describe` turns whatever was thrown, here or in a library, into an error
// with an identifier; `addCauses` looks for the reasons that the module keeps to itself; `asText` and
// `asJson` write the result. All of it runs in handlers of last resort, perhaps without memory, so `report`
// lets nothing out.
#include "hosts/cli/error_report.h"

#include <algorithm>
#include <new>
#include <typeinfo>

#include <fmt/format.h>

#include "hosts/cli/terminal.h"
#include "platform/errors/catalog.h"
#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/samples/recorded_session.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"
#include "platform/text/suggestion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::JsonWriter;
using foundation::core::except::Arguments;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;

/// The module reads the record of a session's compression with POCO and lets its exceptions through. Naming
/// their class in a handler would have every run of the program load that library, which takes longer than
/// all else that is done before a command starts.
bool isOfCompressionRecord(const std::exception& error) {
  return std::string_view(typeid(error).name()).starts_with("N4Poco");
}

/// What is wrong with the record, of which POCO tells the position or the type of its own object.
std::vector<except_with_causes> causesInRecord(const std::u16string& path) try {
  DataExportFile file(false);
  file.initReadPackage(path);
  file.modifyReadPackage(path);
  const auto parts = file.getPartsByRelationshipType(relationship_types::kCompression);
  if (parts.empty()) return {};
  return {except_with_causes("recovery:check:CompressionRecord", {parts.front().getName().text()})};
} catch (const opc::Exception&) {
  return {};
}

/// The exception being handled, of any kind, as a message-ID error. Memory may be out, so that case is left
/// to the caller.
except_with_causes describe(const std::u16string& path) {
  const auto unexpected = [&](std::string_view reason) {
    // The catalog's text ends the sentence; some libraries' messages are sentences already.
    if (reason.ends_with('.')) reason.remove_suffix(1);
    return except_with_causes("tavlox:cli:UnexpectedFailure", {path, fl::i18n::to_ustring_lossy(reason)});
  };
  try {
    throw;
  } catch (const except_with_causes& error) {
    return error;
    // Behind the class derived from it. What arrives here is a collection, which answers with its first
    // error.
  } catch (const IUserException& error) {
    return except_with_causes(error.GetID(), error.GetArguments());
  } catch (const fl::i18n::ConversionError& error) {
    return except_with_causes("tavlox:cli:IllFormedText", {fl::i18n::to_ustring_lossy(error.what())});
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    if (!isOfCompressionRecord(error)) return unexpected(error.what());
    except_with_causes failure = unexpected("the record of the session's compression is not valid");
    for (const except_with_causes& cause : causesInRecord(path)) failure.addCause(cause);
    return failure;
  }
}

/// The module's errors name the file alone, so the package library is asked for the reason.
void addCauses(except_with_causes& error) {
  // The first argument of either error is the path. The module leaves it empty where it is not
  // the file's fault, as for an unknown run.
  if (error.GetArguments().empty() || error.GetArguments().front().empty()) return;
  if (error.GetID() == "tavlox:general:UnableToReadFile") {
    // None if the file was replaced by a sound one meanwhile.
    if (const auto rule = opc::model::brokenRule(error.GetArguments().front())) error.addCause(*rule);
  }
  // The module's host interface has no causes for a failed save, but the package library remembers its own.
  const auto& failedSave = opc::model::lastFailedSave();
  if (error.GetID() == "tavlox_io:general:UnableToClosePackage" && failedSave) error.addCause(*failedSave);
}

/// The command or option that was most likely meant.
std::u16string hintAtCommandLine(const except_with_causes& error) {
  std::vector<std::u16string> known;
  const auto addNames = [&](std::span<const Parameter> parameters) {
    for (const Parameter& parameter : parameters) known.push_back(fl::i18n::to_ustring(parameter.name));
  };
  if (error.GetID() == "tavlox:cli:UnknownCommand") {
    for (const Command* command : allCommands()) known.push_back(fl::i18n::to_ustring(command->name));
  } else if (error.GetID() == "tavlox:cli:UnknownOption") {
    addNames(findCommand(fl::i18n::to_string(error.GetArguments().back()))->parameters);
    addNames(commonParameters());
  } else {
    return {};
  }
  return fl::i18n::didYouMean(error.GetArguments().front(), known);
}

/// The entry that was most likely meant by a search that found none: one that the package's relationships
/// reach.
std::u16string hintAtEntry(const except_with_causes& error, const std::u16string& path) try {
  if (error.GetID() != "tavlox_io:general:EntryDoesNotExist" || error.GetArguments().empty()) return {};
  const std::u16string& search = error.GetArguments().front();
  std::vector<std::u16string> names;
  opc::model::Package package(path);
  package.open(opc::interfaces::OpenMode::Read);
  for (const opc::model::Relationship& link : package.getRelationships(opc::model::ExcludeMode::External)) {
    const auto part = package.findPart(link);
    if (!part) continue;
    const std::u16string name = part->getName().text();
    names.push_back(search.starts_with(u'/') ? name : fs::extract_filename(name));
    // Only user files are found by their names alone.
    if (names.back() == search) return u"did you mean \"" + name + u"\"?";
  }
  return names.empty() ? u"the package has no entries" : fl::i18n::didYouMean(search, names);
} catch (const opc::Exception&) {
  // What cannot be read any more has nothing to suggest.
  return {};
}

/// Only searches know the home folder by "~". Shells expand it, but not in quotes or behind a "=".
std::u16string hintAtHome(const except_with_causes& error) {
  if (error.GetArguments().empty()) return {};
  const std::u16string& path = error.GetArguments().front();
  // "~user" is not looked at: no search knows it.
  if (path != u"~" && !path.starts_with(u"~/")) return {};
  if (error.GetID() == "tavlox_io:general:EntryDoesNotExist") {
    return u"in a search \"~\" is the home folder; looked for was " + fs::expand(path);
  }
  return u"\"~\" is a name like any other here; the path tried is " + fs::absolute(path);
}

/// What this program knows besides. `path` is the package at hand and may be empty.
std::u16string hintFor(const except_with_causes& error, const std::u16string& path) {
  std::u16string hint = hintAtCommandLine(error);
  if (hint.empty() && !path.empty()) hint = hintAtEntry(error, path);
  return hint.empty() ? hintAtHome(error) : hint;
}

/// The catalog's text on one line that cannot drive a terminal, and the identifier.
std::string shown(const IUserException& error) {
  // Lossy: the message may quote bytes of a damaged file. A message is never refused for what it holds.
  const std::u16string message = fl::i18n::to_ustring_lossy(error.GetMessageTxt());
  return fmt::format("{} [{}]\n", singleLine(message, Backslashes::Kept), error.GetID());
}

/// A line for each cause, in order, a cause's own causes behind it. The lines do not show who caused whom;
/// JSON does.
void appendCauses(std::string& text, const except_with_causes& error) {
  for (const except_with_causes& cause : error.causes()) {
    text += "  because: " + shown(cause);
    appendCauses(text, cause);
  }
}

/// Whether the error or one of its causes names the file, at least by its last component.
bool names(const except_with_causes& error, const std::u16string& path) {
  const std::u16string name = fs::extract_filename(path);
  return fl::i18n::to_ustring_lossy(error.GetMessageTxt()).find(name) != std::u16string::npos ||
         std::ranges::any_of(error.causes(), [&](const auto& cause) { return names(cause, path); });
}

/// The part of the session that is at fault, of which the error says only the kind. The module reads the
/// parts as one, so they are read once more, each by itself.
std::u16string partOf(const except_with_causes& error, const std::u16string& path) try {
  for (const except_with_causes& cause : error.causes())
    if (cause.GetID() == "recovery:check:CompressionRecord") return cause.GetArguments().front();
  const bool isOfPart = error.GetID() == "simulation_data_repository:sdr:InvalidSessionData";
  return isOfPart && !path.empty() ? samples::invalidSessionPart(path) : std::u16string();
} catch (const opc::Exception&) {
  return {};
}

/// What is told with an error besides: the file at hand where the error names none, the part where it says
/// only of which kind, and a hint. Each may be empty.
struct Remarks {
  std::u16string file, part, hint;
};

/// The lines for people, the last one ended. `kind` is "error" or "warning".
std::string asText(std::string_view kind, const except_with_causes& error, const Remarks& remarks) {
  const auto& [file, part, hint] = remarks;
  std::string text = fmt::format("tavlox: {}: {}", kind, shown(error));
  appendCauses(text, error);
  if (!file.empty()) text += fmt::format("  file: {}\n", singleLine(file, Backslashes::Kept));
  if (!part.empty()) text += fmt::format("  part: {}\n", singleLine(part, Backslashes::Kept));
  if (!hint.empty()) text += fmt::format("  hint: {}\n", singleLine(hint, Backslashes::Kept));
  return text;
}

// As long as a path can be. Names in a file may be longer, by megabytes.
constexpr std::size_t kLongestArgument = 4096;

/// The members "identifier", "arguments", "message", and "causes", "file", "part" and "hint" where there are
/// any. Causes are objects of the same form, to any depth.
void writeError(JsonWriter& json, const except_with_causes& error, const Remarks& remarks) {
  json.beginObject().member("identifier").value(error.GetID());
  json.member("arguments").beginArray();
  for (const std::u16string& argument : error.GetArguments())
    json.value(fl::i18n::shortened(argument, kLongestArgument));
  json.endArray().member("message").value(error.GetMessageTxt());
  if (!error.causes().empty()) {
    json.member("causes").beginArray();
    for (const except_with_causes& cause : error.causes()) writeError(json, cause, {});
    json.endArray();
  }
  if (!remarks.file.empty()) json.member("file").value(remarks.file);
  if (!remarks.part.empty()) json.member("part").value(remarks.part);
  if (!remarks.hint.empty()) json.member("hint").value(remarks.hint);
  json.endObject();
}

/// One line, so that programs can take errors as they come, one object each.
std::string asJson(std::string_view kind, const except_with_causes& error, const Remarks& remarks) {
  JsonWriter json;
  json.beginObject().member(kind);
  writeError(json, error, remarks);
  json.endObject();
  return json.take() + "\n";
}

void tell(OutputFormat format, std::string_view kind, const except_with_causes& error,
          const Remarks& remarks) {
  // Where progress is shown it stands in the line that the message is to take.
  eraseProgress();
  printError(format == OutputFormat::Json ? asJson(kind, error, remarks) : asText(kind, error, remarks));
}

// Without memory there is no catalog, and nothing to put a text together in.
constexpr std::string_view kOutOfMemory =
    "tavlox: error: Out of memory. Close other programs or data and try again. [tavlox:cli:OutOfMemory]\n";
constexpr std::string_view kOutOfMemoryJson =
    R"({"error":{"identifier":"tavlox:cli:OutOfMemory","arguments":[],"message":"Out of memory. Close other programs or data and try again."}})"
    "\n";

}  // namespace

void report(OutputFormat format, const std::u16string& path, const std::u16string& hint) noexcept {
  try {
    except_with_causes error = describe(path);
    addCauses(error);
    const std::u16string file = path.empty() || names(error, path) ? std::u16string() : path;
    tell(format, "error", error, {file, partOf(error, path), hint.empty() ? hintFor(error, path) : hint});
  } catch (const std::exception&) {
    // A second failure while the first is told: there is hardly any memory left.
    printError(format == OutputFormat::Json ? kOutOfMemoryJson : kOutOfMemory);
  }
}

void tellError(OutputFormat format, const except_with_causes& error) {
  tell(format, "error", error, {{}, {}, hintFor(error, {})});
}

void tellWarning(OutputFormat format, const except_with_causes& warning, const std::u16string& hint) {
  tell(format, "warning", warning, {{}, {}, hint});
}

std::u16string namesInMessage(const std::vector<std::u16string>& names) {
  // With more of them the remedy at the end of the message would be hard to find.
  constexpr std::size_t kMostNamed = 5;
  std::u16string text = names.front();
  for (std::size_t i = 1; i < std::min(names.size(), kMostNamed); ++i) text += u", " + names[i];
  if (names.size() <= kMostNamed) return text;
  return text + fl::i18n::to_ustring(fmt::format(" and {} more", names.size() - kMostNamed));
}

}  // namespace tavlox::cli
