#include "hosts/cli/command.h"
#include "hosts/cli/host_json.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/terminal.h"
#include "platform/files/filesystem.h"

namespace tavlox::cli {
namespace {

ExitCode runCompression(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::Value compression = callFunction(request, "getCompression", {path});
  if (request.format == OutputFormat::Json) {
    fl::i18n::JsonWriter json;
    json.beginObject()
        .member("Filename")
        .value(std::u16string_view(fl::filesystem::absolute(path)))
        .member("Compression");
    writeJson(json, compression);
    json.endObject();
    print(json);
    return ExitCode::Done;
  }
  print(singleLine(cellText(compression)) + "\n");
  return ExitCode::Done;
}

}  // namespace

const Command kCompression = {
    .name = "compression",
    .summary = "Show the recorded compression type of a session",
    .examples = "  tavlox compression filter.tavlox\n",
    .details = "The text that the session's writer recorded; an empty line if it recorded none.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"}},
    .run = runCompression,
};

}  // namespace tavlox::cli
