#include "platform/zip/entry_reader.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/zip/inflater.h"

namespace zip {
using opc::raise;

namespace {

constexpr std::size_t kInputStep = std::size_t{64} << 10;
constexpr std::size_t kOutputStep = std::size_t{256} << 10;

}  // namespace

struct EntryReader::State {
  State(std::shared_ptr<const fl::filesystem::InputFile> archive, const Entry& entry);

  std::size_t read(void* into, std::size_t count);
  std::size_t readStored(void* into, std::size_t count);
  std::size_t readDeflated(void* into, std::size_t count);
  void checkEnd();
  void checkStreamEnd();
  void feed();

  [[noreturn]] void fail(fl::i18n::MessageId<2> identifier) const { raise(identifier, file->path(), name); }

  std::shared_ptr<const fl::filesystem::InputFile> file;
  std::string name;
  Method method;
  std::uint32_t declaredChecksum;
  std::uint64_t next;            ///< place in the file of the next byte of data
  std::uint64_t compressedLeft;  ///< bytes of data that were not taken from the file yet
  std::uint64_t left;            ///< bytes that were not handed out yet
  std::uint32_t actualChecksum = 0;
  bool isAtSoundEnd = false;
  std::exception_ptr failure;
  std::unique_ptr<Inflater> inflater;
  std::unique_ptr<char[]> input;
};

EntryReader::State::State(std::shared_ptr<const fl::filesystem::InputFile> archive, const Entry& entry)
    : file(std::move(archive)),
      name(entry.name),
      method(entry.method),
      declaredChecksum(entry.checksum),
      next(entry.dataOffset),
      compressedLeft(entry.compressedSize),
      left(entry.size) {
  if (method != Method::Deflate) return;
  inflater = std::make_unique<Inflater>();
  input = std::make_unique_for_overwrite<char[]>(std::min<std::uint64_t>(kInputStep, compressedLeft));
}

/// Everything is checked before the last bytes are handed out: whoever reads exactly the declared size has
/// seen the end.
std::size_t EntryReader::State::read(void* into, std::size_t count) {
  const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
  std::size_t got = 0;
  if (wanted != 0) got = method == Method::Stored ? readStored(into, wanted) : readDeflated(into, wanted);
  actualChecksum = checksum(actualChecksum, into, got);
  left -= got;
  if (left == 0) checkEnd();
  return got;
}

std::size_t EntryReader::State::readStored(void* into, std::size_t count) {
  const std::size_t step = std::min(count, kOutputStep);
  file->read(next, into, step);
  next += step;
  compressedLeft -= step;
  return step;
}

std::size_t EntryReader::State::readDeflated(void* into, std::size_t count) {
  for (;;) {
    const Inflater::Step step = inflater->inflate(into, std::min(count, kOutputStep));
    if (step.outcome == Inflater::Outcome::Produced) return step.produced;
    if (step.outcome == Inflater::Outcome::Broken) fail("opc:zip:DataBroken");
    if (step.outcome == Inflater::Outcome::Ended) fail("opc:zip:DataTooShort");
    feed();
  }
}

void EntryReader::State::feed() {
  if (compressedLeft == 0) fail("opc:zip:DataTooShort");
  const std::size_t step = static_cast<std::size_t>(std::min<std::uint64_t>(kInputStep, compressedLeft));
  file->read(next, input.get(), step);
  next += step;
  compressedLeft -= step;
  inflater->feed(input.get(), step);
}

void EntryReader::State::checkEnd() {
  if (isAtSoundEnd) return;
  if (method == Method::Deflate) checkStreamEnd();
  if (compressedLeft != 0) fail("opc:zip:DataTooLong");
  if (actualChecksum != declaredChecksum) fail("opc:zip:ChecksumDiffers");
  isAtSoundEnd = true;
}

/// All declared bytes came out; the stream must have nothing more to say, and end where its bytes do.
void EntryReader::State::checkStreamEnd() {
  for (;;) {
    char surplus = 0;
    const Inflater::Step step = inflater->inflate(&surplus, 1);
    if (step.outcome == Inflater::Outcome::Produced) fail("opc:zip:DataTooLong");
    if (step.outcome == Inflater::Outcome::Broken) fail("opc:zip:DataBroken");
    if (step.outcome == Inflater::Outcome::Ended) break;
    feed();
  }
  if (inflater->unusedInput() != 0) fail("opc:zip:DataTooLong");
}

EntryReader::EntryReader(std::shared_ptr<const fl::filesystem::InputFile> file, const Entry& entry)
    : state_(std::make_unique<State>(std::move(file), entry)) {}
EntryReader::~EntryReader() = default;
EntryReader::EntryReader(EntryReader&&) noexcept = default;
EntryReader& EntryReader::operator=(EntryReader&&) noexcept = default;

std::size_t EntryReader::read(void* into, std::size_t count) {
  if (state_->failure) std::rethrow_exception(state_->failure);
  if (count == 0) return 0;
  try {
    return state_->read(into, count);
  } catch (...) {
    state_->failure = std::current_exception();
    throw;
  }
}

std::string readWhole(const std::shared_ptr<const fl::filesystem::InputFile>& file, const Entry& entry,
                      std::uint64_t limit) {
  if (entry.size > limit) raise("opc:zip:EntryTooLarge", file->path(), entry.name, limit);
  EntryReader reader(file, entry);
  std::string content;
  std::size_t filled = 0;
  // Grows with what really comes: the declared size may be a lie until the end is reached.
  do {
    content.resize(static_cast<std::size_t>(std::min<std::uint64_t>(entry.size, 2 * filled + kOutputStep)));
    while (filled < content.size()) filled += reader.read(content.data() + filled, content.size() - filled);
  } while (filled < entry.size);
  char surplus = 0;
  reader.read(&surplus, 1);
  return content;
}

}  // namespace zip
