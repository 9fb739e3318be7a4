#include "hosts/cli/command.h"

namespace tavlox::cli {
namespace {

const Command* const kCommands[] = {&kRecord,   &kInfo, &kRuns, &kSignals, &kCompression,
                                    &kDescribe, &kList, &kAdd,  &kGet,     &kDelete};

}  // namespace

const std::vector<std::u16string>& Request::all(std::string_view parameter) const {
  static const std::vector<std::u16string> none;
  const auto found = values.find(parameter);
  return found == values.end() ? none : found->second;
}

std::span<const Command* const> allCommands() { return kCommands; }

const Command* findCommand(std::string_view name) {
  for (const Command* command : kCommands) {
    if (command->name == name) return command;
  }
  return nullptr;
}

}  // namespace tavlox::cli
