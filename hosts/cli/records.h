#pragma once

#include <span>
#include <string>
#include <string_view>

#include "hosts/cli/command.h"
#include "platform/arrays/host_array.h"

/// The module's structure arrays on standard output, whole or by column. Each element is written as it is
/// made, so that a million of them need no second copy.
namespace tavlox::cli {

struct Column {
  std::string_view heading;
  std::u16string_view field;
};

/// A row for each element, in the style that fits where standard output goes.
void printTable(const corvan::HostArray& structures, std::span<const Column> columns);

/// A list of objects with every field, however many elements there are.
void printJsonList(const corvan::HostArray& structures);

/// One of the two.
void printRecords(OutputFormat format, const corvan::HostArray& structures, std::span<const Column> columns);

}  // namespace tavlox::cli
