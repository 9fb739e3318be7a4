#pragma once

#include <string_view>

#include "platform/recovery/finding.h"
#include "platform/text/json_writer.h"

/// How findings about damaged packages are shown by the commands that examine them. `error` is what the
/// command calls the findings that are not notes: to `check` they are errors, to `recover` something lost.
namespace tavlox::cli {

/// Whether any of them is more than a note; it decides between the exit codes Done and Found.
bool hasErrors(const recovery::Findings& findings);

/// A table with a row for each: severity, item, offset in bytes if it is known, message, identifier of the
/// rule. Raises tavlox:cli:CannotWriteOutput.
void printFindings(const recovery::Findings& findings, std::string_view error);

/// The member "Findings" of the object that was begun: a list of objects with "Severity", "Item", "Offset"
/// (bytes; left out if not known), "Rule" (the identifier) and "Message".
void writeFindings(fl::i18n::JsonWriter& json, const recovery::Findings& findings, std::string_view error);

}  // namespace tavlox::cli
