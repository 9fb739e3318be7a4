#include "hosts/cli/output.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "platform/errors/except_with_causes.h"

namespace tavlox::cli {
namespace {

void requireSuccess(bool done) {
  if (done) return;
  const std::string reason = std::generic_category().message(errno);
  foundation::core::except::raise("tavlox:cli:CannotWriteOutput", reason);
}

}  // namespace

void print(std::string_view text) {
  requireSuccess(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void print(const Table& table) { print(table.format(tableStyleOfOutput())); }

void print(fl::i18n::JsonWriter& json) { print(json.take() + "\n"); }

void flushOutput() { requireSuccess(std::fflush(stdout) == 0); }

}  // namespace tavlox::cli
