#include "hosts/cli/command.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/files/filesystem.h"

namespace tavlox::cli {
namespace {

ExitCode runDescribe(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const std::u16string& text = request.one("TEXT");
  call(openFile(request, path), "setFileDescription", {text});
  if (request.format != OutputFormat::Json) return ExitCode::Done;
  fl::i18n::JsonWriter json;
  json.beginObject().member("Filename").value(std::u16string_view(fl::filesystem::absolute(path)));
  json.member("Description").value(std::u16string_view(text)).endObject();
  print(json);
  return ExitCode::Done;
}

}  // namespace

const Command kDescribe = {
    .name = "describe",
    .summary = "Set the description of a session",
    .examples =
        "  tavlox describe filter.tavlox \"RC filter, three corners\"\n"
        "  tavlox describe filter.tavlox \"\"\n"
        "  tavlox describe filter.tavlox -- \"-3 dB at 1 kHz\"\n",
    .details =
        "Everything else in the package stays as it is. The file is replaced in one step: it holds either "
        "the\n"
        "old description or the new one, whatever happens. A text that begins with \"-\" goes behind "
        "\"--\".\n",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"TEXT", Takes::One, "The new description; an empty text takes it away"}},
    .run = runDescribe,
};

}  // namespace tavlox::cli
