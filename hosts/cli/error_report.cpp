#include "hosts/cli/error_report.h"

#include <new>

#include <Poco/Exception.h>
#include <fmt/format.h>

#include "hosts/cli/causes.h"
#include "hosts/cli/progress.h"
#include "hosts/cli/terminal.h"
#include "platform/text/conversion.h"
#include "platform/text/json_writer.h"

namespace tavlox::cli {
namespace {

using fl::i18n::JsonWriter;
using foundation::core::except::except_with_causes;
using foundation::core::except::IUserException;

/// The catalog's text on one line that cannot drive a terminal.
std::string shownMessage(const IUserException& error) {
  return singleLine(fl::i18n::to_ustring_lossy(error.GetMessageTxt()), Backslashes::Kept);
}

/// An error of any kind as a message-ID error. Memory may be out, so that case is left to the caller.
except_with_causes describe(const std::exception_ptr& failure, const std::u16string& path) {
  try {
    std::rethrow_exception(failure);
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
    return except_with_causes("tavlox:cli:UnexpectedFailure",
                              {path, fl::i18n::to_ustring_lossy(error.displayText())});
  } catch (const std::exception& error) {
    return except_with_causes("tavlox:cli:UnexpectedFailure",
                              {path, fl::i18n::to_ustring_lossy(error.what())});
  }
}

void appendCauses(std::string& text, const except_with_causes& error) {
  for (const except_with_causes& cause : error.causes()) {
    text += fmt::format("  because: {} [{}]\n", shownMessage(cause), cause.GetID());
    appendCauses(text, cause);
  }
}

void writeError(JsonWriter& json, const except_with_causes& error, const std::u16string& hint = {}) {
  json.beginObject().member("identifier").value(error.GetID());
  json.member("arguments").beginArray();
  for (const std::u16string& argument : error.GetArguments()) json.value(std::u16string_view(argument));
  json.endArray().member("message").value(error.GetMessageTxt());
  if (!error.causes().empty()) {
    json.member("causes").beginArray();
    for (const except_with_causes& cause : error.causes()) writeError(json, cause);
    json.endArray();
  }
  if (!hint.empty()) json.member("hint").value(std::u16string_view(hint));
  json.endObject();
}

}  // namespace

std::string errorAsText(const except_with_causes& error, const std::u16string& hint) {
  std::string text = fmt::format("tavlox: error: {} [{}]\n", shownMessage(error), error.GetID());
  appendCauses(text, error);
  if (!hint.empty()) text += fmt::format("  hint: {}\n", singleLine(hint, Backslashes::Kept));
  return text;
}

std::string errorAsJson(const except_with_causes& error, const std::u16string& hint) {
  JsonWriter json;
  json.beginObject().member("error");
  writeError(json, error, hint);
  json.endObject();
  return json.take() + "\n";
}

void report(const std::exception_ptr& failure, OutputFormat format, const std::u16string& path,
            const std::u16string& hint) noexcept {
  try {
    eraseProgress();
    except_with_causes error = describe(failure, path);
    for (const except_with_causes& cause : findCauses(error)) error.addCause(cause);
    const std::string text =
        format == OutputFormat::Json ? errorAsJson(error, hint) : errorAsText(error, hint);
    printError(text);
  } catch (const std::bad_alloc&) {
    printError("tavlox: error: Out of memory. Close other programs or data and try again.\n");
  } catch (const std::exception& second) {
    for (const char* const piece : {"tavlox: error: ", second.what(), "\n"}) printError(piece);
  }
}

}  // namespace tavlox::cli
