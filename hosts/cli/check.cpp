// Looking for damage. The findings come from platform/recovery, which reads the package itself: the module is
// not loaded, because the packages that matter here are those that it refuses to open. Damage is an answer,
// not a failure of the command, and has an exit code of its own.
#include <algorithm>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/findings.h"
#include "hosts/cli/output.h"
#include "hosts/cli/terminal.h"
#include "platform/files/filesystem.h"
#include "platform/recovery/inspection.h"

namespace tavlox::cli {
namespace {

/// What became of one file.
struct Answer {
  std::u16string path;
  recovery::Findings findings;
  bool isSound() const { return !hasErrors(findings); }
};

/// One file: a single line if there is nothing to say, else the findings. Their table does not name the file,
/// so among several files a line above it does.
void printText(const Answer& answer, bool isOneOfSeveral) {
  if (isOneOfSeveral || answer.isSound())
    print(singleLine(answer.path) + (answer.isSound() ? ": sound\n" : ": damaged\n"));
  if (!answer.findings.empty()) printFindings(answer.findings, "error");
}

/// A list, also of one file: programs need to know the shape beforehand. Nothing where no file could be read.
void printJson(const std::vector<Answer>& answers) {
  if (answers.empty()) return;
  fl::i18n::JsonWriter json;
  json.beginArray();
  for (const Answer& answer : answers) {
    json.beginObject().member("Filename").value(fl::filesystem::absolute(answer.path));
    json.member("Sound").value(answer.isSound());
    writeFindings(json, answer.findings, "error");
    json.endObject();
  }
  print(json.endArray());
}

ExitCode runCheck(const Request& request) {
  const std::vector<std::u16string>& paths = request.all("FILE");
  std::vector<Answer> answers;
  for (const std::u16string& path : paths) {
    try {
      answers.push_back({path, recovery::inspect(path)});
      // Text is printed file by file, since reading a large package takes long. JSON is one document at the
      // end.
      if (request.format == OutputFormat::Text) printText(answers.back(), paths.size() > 1);
    } catch (const std::exception&) {
      // The other files are still checked.
      report(request.format, path);
    }
  }
  if (request.format == OutputFormat::Json) printJson(answers);
  // A file that could not be checked weighs more than damage in others: nothing is known of it.
  if (answers.size() != paths.size()) return ExitCode::Failed;
  return std::ranges::all_of(answers, &Answer::isSound) ? ExitCode::Done : ExitCode::Found;
}

}  // namespace

extern const Command kCheck = {
    .name = "check",
    .summary = "Look for damage in packages",
    .examples = R"(  tavlox check filter.tavlox
  tavlox check --json *.tavlox | jq '.[] | select(.Sound | not) | .Filename'
)",
    .details =
        R"(Checked are the rules of the archive, the checksum of every item, content types and relationships, every part
that a relationship promises, the form of session parts, and whether recorded samples fit their signals.

A finding is a line: error or note, the item, the byte of the file where it begins, what is wrong and what to do about
it, and the rule's identifier. Errors are what readers refuse, notes what they let pass.

Exit code: 0 sound, perhaps with notes; 3 errors were found; 1 a file could not be checked.
)",
    .parameters = {{"FILE", Takes::OneOrMore, "The packages to check"}},
    .run = runCheck,
};

}  // namespace tavlox::cli
