#include "hosts/cli/command_line.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/output.h"
#include "hosts/cli/progress.h"
#include "platform/errors/exceptions.h"

namespace {

using namespace tavlox::cli;

ExitCode runCommand(const CommandLine& line) {
  if (line.command == nullptr) {
    print(line.text);
    return ExitCode::Done;
  }
  const ProgressDisplay progress;
  return line.command->run(line.request);
}

}  // namespace

int main(int argumentCount, char** arguments) {
  // Until the command line is understood, whatever fails is its fault.
  ExitCode failure = ExitCode::WrongCommandLine;
  std::u16string file;
  try {
    const CommandLine line = parseCommandLine(argumentCount, arguments);
    failure = ExitCode::Failed;
    if (line.request.has("FILE")) file = line.request.one("FILE");
    const ExitCode result = runCommand(line);
    flushOutput();
    return static_cast<int>(result);
  } catch (const std::exception&) {
    report(std::current_exception(), requestedFormat(argumentCount, arguments), file);
    return static_cast<int>(failure);
  }
}
