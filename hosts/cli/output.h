#pragma once

#include <string_view>

#include "hosts/cli/table.h"
#include "platform/text/json_writer.h"

namespace tavlox::cli {

/// Writes to standard output. Raises tavlox:cli:CannotWriteOutput with the system's reason.
void print(std::string_view text);

/// The table in the style that fits where standard output goes.
void print(const Table& table);

/// The document and a line end.
void print(fl::i18n::JsonWriter& json);

/// Each text on a line of its own, escaped as the values of a table are.
void printLines(const std::vector<std::u16string>& lines);

/// An object with the package's path as "Filename", and the texts as a list.
void printJson(const std::u16string& path, std::string_view member, const std::vector<std::u16string>& texts);

/// Makes sure that all of it has arrived. Raises as print does.
void flushOutput();

}  // namespace tavlox::cli
