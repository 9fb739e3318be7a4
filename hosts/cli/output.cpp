#include "hosts/cli/output.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "hosts/cli/progress.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"

namespace tavlox::cli {
namespace {

void requireSuccess(bool done) {
  if (done) return;
  const std::string reason = std::generic_category().message(errno);
  foundation::core::except::raise("tavlox:cli:CannotWriteOutput", reason);
}

}  // namespace

void print(std::string_view text) {
  eraseProgress();
  requireSuccess(std::fwrite(text.data(), 1, text.size(), stdout) == text.size());
}

void print(const Table& table) { print(table.format(tableStyleOfOutput())); }

void print(fl::i18n::JsonWriter& json) { print(json.take() + "\n"); }

void printLines(const std::vector<std::u16string>& lines) {
  for (const std::u16string& line : lines) print(singleLine(line) + "\n");
}

void printJson(const std::u16string& path, std::string_view member,
               const std::vector<std::u16string>& texts) {
  fl::i18n::JsonWriter json;
  json.beginObject().member("Filename").value(std::u16string_view(fl::filesystem::absolute(path)));
  json.member(member).beginArray();
  for (const std::u16string& text : texts) json.value(std::u16string_view(text));
  json.endArray().endObject();
  print(json);
}

void flushOutput() { requireSuccess(std::fflush(stdout) == 0); }

}  // namespace tavlox::cli
