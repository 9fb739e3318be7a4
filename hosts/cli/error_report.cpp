#include "hosts/cli/error_report.h"

#include <algorithm>
#include <filesystem>
#include <new>

#include <Poco/Exception.h>
#include <fmt/format.h>
#include <unistd.h>

#include "hosts/cli/terminal.h"
#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::JsonWriter;
using foundation::core::except::Arguments;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;

/// The exception being handled, of any kind, as a message-ID error. Memory may be out, so that case is left
/// to the caller.
except_with_causes describe(const std::u16string& path) {
  const auto unexpected = [&](std::string_view reason) {
    return except_with_causes("tavlox:cli:UnexpectedFailure", {path, fl::i18n::to_ustring_lossy(reason)});
  };
  try {
    throw;
  } catch (const except_with_causes& error) {
    return error;
  } catch (const IUserException& error) {
    return except_with_causes(error.GetID(), error.GetArguments());
  } catch (const fl::i18n::ConversionError& error) {
    return except_with_causes("tavlox:cli:IllFormedText", {fl::i18n::to_ustring_lossy(error.what())});
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const Poco::Exception& error) {
    // Modules may let these through, and what() gives no more than their kind.
    return unexpected(error.displayText());
  } catch (const std::exception& error) {
    return unexpected(error.what());
  }
}

bool isWritable(const std::u16string& path, int also) {
  return access(fl::i18n::to_string(path).c_str(), W_OK | also) == 0;
}

/// Adds the rule of the package format that the file breaks, if it breaks one.
void addBrokenRule(except_with_causes& error, const std::u16string& path) {
  try {
    opc::model::Package package(path);
    package.open(opc::interfaces::OpenMode::Read);
  } catch (const opc::Exception& broken) {
    error.addCause(broken);
  }
}

/// Adds what keeps a change of the file from being saved, as far as it can be seen from outside.
void addObstaclesToSaving(except_with_causes& error, const std::u16string& path) {
  const std::u16string target = fs::weakly_canonical(path);
  const std::u16string folder = fs::extract_parent_path(target);
  // The mode is asked too: to the superuser every file is writable, and still a read-only one is left alone.
  if (fs::exists(target) &&
      (!fs::status(target).has(fs::Permissions::OwnerWrite) || !isWritable(target, 0))) {
    error.addCause(except_with_causes("tavlox:save:FileIsReadOnly", Arguments{target}));
  }
  if (!isWritable(folder, X_OK)) {
    error.addCause(except_with_causes("tavlox:save:FolderNotWritable", Arguments{folder}));
  }
  std::error_code unknown;
  const auto space = std::filesystem::space(fl::i18n::to_string(folder), unknown);
  if (!unknown && space.available == 0) {
    error.addCause(except_with_causes("tavlox:save:DiskFull", Arguments{folder}));
  }
}

/// The module's errors name the file alone, so the package library and the file system are asked again.
void addCauses(except_with_causes& error) {
  if (error.GetArguments().empty() || error.GetArguments().front().empty()) return;
  const std::u16string path = error.GetArguments().front();
  const bool isReading = error.GetID() == "tavlox:general:UnableToReadFile";
  const bool isSaving = error.GetID() == "tavlox_io:general:UnableToClosePackage";
  const std::size_t given = error.causes().size();
  if (isReading) addBrokenRule(error, path);
  // A file that is sound and still not read was to be changed.
  if (isSaving || (isReading && error.causes().size() == given)) addObstaclesToSaving(error, path);
}

/// The catalog's text on one line that cannot drive a terminal, and the identifier.
std::string shown(const IUserException& error) {
  const std::u16string message = fl::i18n::to_ustring_lossy(error.GetMessageTxt());
  return fmt::format("{} [{}]\n", singleLine(message, Backslashes::Kept), error.GetID());
}

void appendCauses(std::string& text, const except_with_causes& error) {
  for (const except_with_causes& cause : error.causes()) {
    text += "  because: " + shown(cause);
    appendCauses(text, cause);
  }
}

std::string asText(const except_with_causes& error, const std::u16string& hint) {
  std::string text = "tavlox: error: " + shown(error);
  appendCauses(text, error);
  if (!hint.empty()) text += fmt::format("  hint: {}\n", singleLine(hint, Backslashes::Kept));
  return text;
}

void writeError(JsonWriter& json, const except_with_causes& error, const std::u16string& hint) {
  json.beginObject().member("identifier").value(error.GetID());
  json.member("arguments").beginArray();
  for (const std::u16string& argument : error.GetArguments()) json.value(argument);
  json.endArray().member("message").value(error.GetMessageTxt());
  if (!error.causes().empty()) {
    json.member("causes").beginArray();
    for (const except_with_causes& cause : error.causes()) writeError(json, cause, {});
    json.endArray();
  }
  if (!hint.empty()) json.member("hint").value(hint);
  json.endObject();
}

std::string asJson(const except_with_causes& error, const std::u16string& hint) {
  JsonWriter json;
  json.beginObject().member("error");
  writeError(json, error, hint);
  json.endObject();
  return json.take() + "\n";
}

}  // namespace

void report(OutputFormat format, const std::u16string& path, const std::u16string& hint) noexcept {
  try {
    eraseProgress();
    except_with_causes error = describe(path);
    addCauses(error);
    printError(format == OutputFormat::Json ? asJson(error, hint) : asText(error, hint));
  } catch (const std::bad_alloc&) {
    printError("tavlox: error: Out of memory. Close other programs or data and try again.\n");
  } catch (const std::exception& second) {
    for (const char* const piece : {"tavlox: error: ", second.what(), "\n"}) printError(piece);
  }
}

std::u16string namesInMessage(const std::vector<std::u16string>& names) {
  constexpr std::size_t kMostNamed = 5;
  std::u16string text = names.front();
  for (std::size_t i = 1; i < std::min(names.size(), kMostNamed); ++i) text += u", " + names[i];
  if (names.size() <= kMostNamed) return text;
  return text + fl::i18n::to_ustring(fmt::format(" and {} more", names.size() - kMostNamed));
}

}  // namespace tavlox::cli
