#include "platform/session_index/package_rows.h"

#include <ctime>
#include <optional>
#include <unordered_map>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/date_time/posix_time/time_formatters_limited.hpp>

#include "platform/errors/exceptions.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/samples/recorded_session.h"
#include "platform/samples/reduction.h"
#include "platform/session_index/rows.h"
#include "platform/session_index/shown_fields.h"
#include "platform/text/conversion.h"

namespace tavlox::session_index {
namespace {

namespace fs = fl::filesystem;
using samples::RecordedRun;
using samples::RecordedSession;

/// Nanoseconds since the epoch.
std::int64_t now() {
  std::timespec time{};
  static_cast<void>(std::timespec_get(&time, TIME_UTC));  // cannot fail with this base
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// In UTC after ISO 8601, to the microsecond.
std::string inWords(std::int64_t nanoseconds) {
  using namespace boost::posix_time;
  static const ptime epoch(boost::gregorian::date(1970, 1, 1));
  return to_iso_extended_string(epoch + microseconds(nanoseconds / 1000)) + "Z";
}

/// Whether there is such a file. Its state, and the time of reading, are noted before it is read: what
/// changes meanwhile is then seen to have changed the next time.
bool writeFile(const std::u16string& path, std::int64_t time, RowWriter& row) {
  const fs::FileIdentity file = fs::identityOf(fs::toNativeName(path));
  const bool isThere = file != fs::FileIdentity{};
  row.begin(isThere ? RowKind::File : RowKind::Gone).text(path);
  if (isThere) {
    row.integer(static_cast<std::int64_t>(file.inode)).integer(static_cast<std::int64_t>(file.size));
    row.integer(file.modified)
        .integer(file.changed)
        .integer(time)
        .text(std::string_view(inWords(file.modified)));
  }
  row.end();
  return isThere;
}

void writeError(const std::string& identifier, std::string_view message, bool isWhole, RowWriter& row) {
  row.begin(RowKind::Error).text(std::string_view(identifier));
  row.text(fl::i18n::to_ustring_lossy(message)).integer(isWhole ? 1 : 0).end();
}

/// Runs `read`; an error becomes a row. `isWhole` says that nothing of the package is to be kept then.
template <class Read>
bool orError(bool isWhole, RowWriter& row, const Read& read) {
  using foundation::core::except::IUserException;
  try {
    read();
    return true;
  } catch (const IUserException& error) {
    writeError(error.GetID(), error.GetMessageTxt(), isWhole, row);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    writeError("tavlox:index:UnexpectedFailure", error.what(), isWhole, row);
  }
  return false;
}

/// Where the signals of a run stand among all of the package, in their order.
using Places = std::unordered_map<std::int32_t, std::vector<std::uint32_t>>;

void writeStatistics(const RecordedSession& session, const RecordedRun& run,
                     const std::vector<std::uint32_t>& places, RowWriter& row) {
  samples::Wanted wanted;
  std::vector<std::size_t> recorded;
  for (std::size_t i = 0; i < run.signals.size(); ++i) {
    if (run.signals[i].column == 0) continue;
    wanted.columns.push_back(run.signals[i].column);
    recorded.push_back(i);
  }
  if (!run.samples || recorded.empty()) return;
  std::vector<samples::Bucket> buckets(recorded.size());
  samples::SampleReader reader = session.read(run, wanted);
  for (samples::SampleBlock block; reader.next(block);) {
    for (std::size_t column = 0; column < buckets.size(); ++column)
      for (std::size_t i = 0; i < block.rows; ++i)
        buckets[column].add(samples::Sample{block.times[i], block.values[column][i]});
  }
  for (std::size_t column = 0; column < buckets.size(); ++column) {
    const samples::Bucket& bucket = buckets[column];
    row.begin(RowKind::Statistics).integer(places[recorded[column]]);
    row.text(std::u16string_view(run.samples->text())).integer(wanted.columns[column]);
    if (bucket.count == 0) row.nothing().nothing();
    if (bucket.count > 0) row.number(bucket.minimum.value).number(bucket.maximum.value);
    row.integer(static_cast<std::int64_t>(bucket.count)).end();
  }
}

void writeSession(const std::u16string& path, RowWriter& row) {
  Places places;
  std::uint32_t signalCount = 0;
  std::optional<RecordedSession> session;
  const bool isRead = orError(true, row, [&] {
    session.emplace(path, [&](const RecordedRun& run, const orra::SignalRecord& signal) {
      places[run.id()].push_back(signalCount++);
      row.begin(RowKind::Signal);
      writeSignal(run, signal, row);
      row.end();
    });
    std::u16string description, version;
    session->file().getDescription(description);
    session->file().getVersion(version);
    row.begin(RowKind::Properties).text(description).text(version).end();
    for (const RecordedRun& run : session->runs()) {
      row.begin(RowKind::Run);
      writeRun(run, row);
      row.end();
    }
  });
  if (!isRead) return;
  for (const RecordedRun& run : session->runs())
    orError(false, row, [&] { writeStatistics(*session, run, places[run.id()], row); });
}

}  // namespace

void writePackageRows(const std::u16string& path, std::FILE* stream) {
  RowWriter row(stream);
  if (writeFile(path, now(), row)) writeSession(path, row);
  row.begin(RowKind::End).end();
}

void writeEndedRows(const std::u16string& path, std::FILE* stream) {
  RowWriter row(stream);
  constexpr std::int64_t kLongAgo = 0;
  if (writeFile(path, kLongAgo, row))
    orError(true, row, [&] { foundation::core::except::raise("tavlox:index:ProcessEnded", path); });
  row.begin(RowKind::End).end();
}

}  // namespace tavlox::session_index
