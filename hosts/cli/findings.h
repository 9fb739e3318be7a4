#pragma once

#include <string_view>

#include "platform/recovery/finding.h"
#include "platform/text/json_writer.h"

/// How findings about damaged packages are shown. `error` is what the command calls those that are not notes.
namespace tavlox::cli {

bool hasErrors(const recovery::Findings& findings);

/// A table with a row for each.
void printFindings(const recovery::Findings& findings, std::string_view error);

/// The member "Findings" of an object: a list of objects.
void writeFindings(fl::i18n::JsonWriter& json, const recovery::Findings& findings, std::string_view error);

}  // namespace tavlox::cli
