#include "hosts/cli/command.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/saving.h"

namespace tavlox::cli {
namespace {

ExitCode runDescribe(const Request& request) {
  const std::u16string &path = request.one("FILE"), &text = request.one("TEXT");
  const zobs::COSInterfacePointer file = openFile(request, path);
  save(request, path, [&] { call(file, "setFileDescription", {text}); });
  // People are told nothing: the text is the one they gave. Programs get the object that every command gives.
  if (request.format == OutputFormat::Json)
    print(beginAnswer(path).member("Description").value(text).endObject());
  return ExitCode::Done;
}

}  // namespace

extern const Command kDescribe = {
    .name = "describe",
    .summary = "Set the description of a session",
    .examples = R"(  tavlox describe filter.tavlox "RC filter, three corners"
  tavlox describe filter.tavlox ""
  tavlox describe filter.tavlox -- "-3 dB at 1 kHz"
)",
    .details =
        R"(Everything else in the package stays as it is. The file is replaced in one step: it holds either the
old description or the new one, whatever happens. A text that begins with "-" goes behind "--".
)",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"TEXT", Takes::One, "The new description; an empty text takes it away"},
                   kWait},
    .run = runDescribe,
    .check = checkWait,
};

}  // namespace tavlox::cli
