// Texts from outside that are no documents of a package: tables of samples, catalogs, the compression record.

#include <cmath>
#include <filesystem>
#include <limits>
#include <string>

#include "package/session_parts.h"
// As a source, because its reading of files and its filling of texts are internal.
#include "platform/errors/catalog.cpp"
#include "platform/tables/open_table.h"
#include "tests/fuzz/target.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace {

using fuzz::require;

/// What comes of a table: all of it in plain form, or the error.
std::string outcome(std::string_view bytes, const tavlox::tables::TableOptions& options) {
  static const support::TemporaryFolder folder;
  folder.write("t", bytes);
  std::string plain;
  const std::string error = support::raisedBy([&] {
    const auto table = tavlox::tables::openTable(tavlox::tables::TableFile(folder.wide("t")), options);
    plain = table->description().headingLine;
    tavlox::tables::Row row;
    double last = -std::numeric_limits<double>::infinity();
    for (; table->next(row); last = row.time) {
      require(std::isfinite(row.time));
      plain += row.plain;
      if (row.time <= last) table->refuseTime();
    }
    plain += row.plain;
  });
  require(error.empty() || error.starts_with("tavlox:record:"));
  return error.empty() ? plain : std::string();
}

}  // namespace

/// Whatever is read is plain: read again with nothing to be found out, the same comes of it.
void sampleTable(std::string_view bytes) {
  std::string plain = outcome(bytes, {});
  // A first row of numbers is refused unless one says that it is one.
  if (plain.empty()) plain = outcome(bytes, {.hasHeadings = false});
  // A heading with a zero for its second character would be taken for UTF-16, as tables of that begin so.
  if (plain.empty() || plain[1] == '\0') return;
  const tavlox::tables::TableOptions known{.delimiter = ',', .decimal = '.', .comment = '\0'};
  require(outcome(plain, known) == plain);
}

/// The arguments of a message take the place of what stands for them, and nothing else is lost.
void catalog(std::string_view bytes) {
  static const support::TemporaryFolder folder;
  for (const auto& [key, text] : fl::i18n::readTexts(folder.write("catalog.json", bytes))) {
    require(fl::i18n::fill(text, {u"{0}", u"{1}", u"{2}", u"{3}", u"{4}", u"{5}", u"{6}", u"{7}", u"{8}",
                                  u"{9}"}) == text);
    require(fl::i18n::fill(text, {}).size() <= text.size());
  }
}

/// The text is found or the record refused, with an error that a caller can catch.
void compressionRecord(std::string_view bytes) {
  using namespace orra::tavloxio;
  static const support::SessionFixture session;
  const std::u16string path =
      session.writeWithPart("s.tavlox", tavlox::relationship_types::kCompression, bytes);
  (void)support::raisedBy([&] { readCompressionType(file::ScopedRef(file::OpenMode::Read, path)); });
}
