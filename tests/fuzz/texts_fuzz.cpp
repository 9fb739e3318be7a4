// Texts from outside that are no documents of a package: tables of samples, catalogs, the compression record.

#include <filesystem>
#include <string>

#include "hosts/cli/sample_table.h"
#include "package/session_parts.h"
// As a source, because its reading of files and its filling of texts are internal.
#include "platform/errors/catalog.cpp"
#include "tests/fuzz/target.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

namespace {

using fuzz::require;

/// What comes of a table that is taken in pieces: what it says of itself, or the error.
std::string outcome(std::string_view bytes, std::size_t piece) {
  tavlox::cli::SampleTable table(u"t");
  const std::string error = support::raisedBy([&] {
    for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size())))
      table.take(bytes.substr(0, piece));
    table.finish();
  });
  require(error.empty() || error.starts_with("tavlox:record:"));
  if (!error.empty()) return error;
  return std::to_string(table.rowCount()) + " " + std::to_string(table.startTime()) + " " +
         std::to_string(table.stopTime()) + fl::i18n::to_string(table.sampleTime());
}

}  // namespace

/// The same comes of a table however it is cut, the first byte says where.
void sampleTable(std::string_view bytes) {
  if (bytes.empty()) return;
  const std::string_view table = bytes.substr(1);
  require(outcome(table, table.size() + 1) == outcome(table, 1 + static_cast<unsigned char>(bytes[0])));
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
