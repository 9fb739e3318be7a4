#include "hosts/cli/command.h"
#include "hosts/cli/host_json.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/terminal.h"

namespace tavlox::cli {
namespace {

ExitCode runCompression(const Request& request) {
  const std::u16string& path = request.one("FILE");
  // Asked of the function, not of a file object: the object's property of this name reads the properties
  // together, run and signal counts included.
  const zobs::Value compression = callFunction(request, "getCompression", {path});
  // The text alone, without a heading, so that a script can take it as it is.
  if (request.format == OutputFormat::Text) {
    print(singleLine(cellText(compression)) + "\n");
    return ExitCode::Done;
  }
  fl::i18n::JsonWriter json = beginAnswer(path);
  writeJson(json.member("Compression"), compression);
  print(json.endObject());
  return ExitCode::Done;
}

}  // namespace

extern const Command kCompression = {
    .name = "compression",
    .summary = "Show the recorded compression type of a session",
    .examples = "  tavlox compression filter.tavlox\n",
    .details = "The text that the session's writer recorded; an empty line if it recorded none.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"}},
    .run = runCompression,
};

}  // namespace tavlox::cli
