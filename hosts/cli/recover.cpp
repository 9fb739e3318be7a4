// Making a new package of what is sound in a damaged one. The work is platform/recovery's; the module is not
// loaded, since it refuses damaged packages. The damaged file stays as it is: a later version may save more
// of it.
#include "hosts/cli/command.h"
#include "hosts/cli/findings.h"
#include "hosts/cli/output.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/recovery/rebuild.h"

namespace tavlox::cli {
namespace {

using foundation::core::except::raise;

/// An option that must be given: beside FILE, a second bare word could be mistaken for another damaged
/// package.
void requireOutput(const Request& request) {
  if (!request.has("--output")) raise("tavlox:recover:NoOutput");
}

void printJson(const Request& request, const recovery::Rebuilt& rebuilt) {
  fl::i18n::JsonWriter json = beginAnswer(request.one("FILE"));
  json.member("Recovered").value(fl::filesystem::absolute(request.one("--output")));
  json.member("NumParts").value(rebuilt.parts);
  json.member("Complete").value(!hasErrors(rebuilt.findings));
  writeFindings(json, rebuilt.findings, "lost");
  json.endObject();
  print(json);
}

ExitCode runRecover(const Request& request) {
  using Existing = opc::model::Package::Existing;
  const std::u16string& output = request.one("--output");
  // Asked before the damaged file is read, which may take long, and again by `rebuild` when the package is
  // saved.
  if (!request.has("--force") && fl::filesystem::exists(output)) raise("tavlox:recover:OutputExists", output);
  const recovery::Rebuilt rebuilt = recovery::rebuild(
      request.one("FILE"), output, request.has("--force") ? Existing::Replace : Existing::Refuse);
  request.format == OutputFormat::Json ? printJson(request, rebuilt)
                                       : printFindings(rebuilt.findings, "lost");
  // Notes are decisions that lost nothing.
  return hasErrors(rebuilt.findings) ? ExitCode::Found : ExitCode::Done;
}

}  // namespace

extern const Command kRecover = {
    .name = "recover",
    .summary = "Make a new package of what is sound in a damaged one",
    .examples = R"(  tavlox recover broken.tavlox -o rescued.tavlox
  tavlox recover --json broken.tavlox -o new.tavlox | jq '.Findings[].Message'
)",
    .details =
        R"(Items are found where they lie, also when the directory of the file is damaged, contradicted or cut off. Every item
whose checksum holds becomes a part of NEW, byte for byte. Content types and relationships come from the original
documents if these are sound, else from the names that sessions use. What cannot stand where it stood is kept below
/user/recovered, and so are the readable elements of a damaged run list or signals part. FILE is only read.

Prints a line for each thing that was lost or decided: lost or note, the item, the byte of FILE where it begins, what
happened, and the rule's identifier.

Exit code: 0 nothing was lost, 3 something was; 1 nothing could be recovered.
)",
    .parameters = {{"FILE", Takes::One, "The damaged package"},
                   {"--output", Takes::Value, "The package to make; must be given", "NEW", "-o"},
                   {"--force", Takes::Flag, "Replace NEW if it exists"}},
    .run = runRecover,
    .check = requireOutput,
};

}  // namespace tavlox::cli
