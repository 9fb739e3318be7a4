#include "hosts/cli/csv_reader.h"

#include <exception>
#include <new>

#include <csv.h>

#include "platform/errors/exceptions.h"

namespace tavlox::cli {

namespace {

using foundation::core::except::raise;

constexpr std::size_t kLongestCell = std::size_t{64} * 1024;

}  // namespace

struct CsvReader::State {
  State(std::u16string tablePath, Receiver tableReceiver)
      : path(std::move(tablePath)), receiver(std::move(tableReceiver)) {
    if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0) throw std::bad_alloc();
  }
  ~State() { csv_free(&parser); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  /// Runs a receiver's function inside a C callback: nothing may be thrown through the parser.
  template <class Work>
  void guarded(const Work& work) noexcept {
    if (failure) return;
    try {
      work();
    } catch (...) {
      failure = std::current_exception();
    }
  }

  static void onCell(void* text, std::size_t size, void* state) {
    State& self = *static_cast<State*>(state);
    self.bytesSinceCell = 0;
    self.guarded([&] { self.receiver.cell({static_cast<const char*>(text), size}, self.place); });
    ++self.place.column;
  }

  static void onEndOfRow(int, void* state) {
    State& self = *static_cast<State*>(state);
    self.guarded([&] { self.receiver.endOfRow(self.place); });
    self.place.column = 1;
  }

  /// One line with its end, or a piece of one.
  void parse(std::string_view piece) {
    bytesSinceCell += piece.size();
    const std::size_t parsed = csv_parse(&parser, piece.data(), piece.size(), onCell, onEndOfRow, this);
    if (failure) std::rethrow_exception(failure);
    if (parsed != piece.size()) refuse();
    if (bytesSinceCell > kLongestCell) raise("tavlox:record:CellTooLong", path, place.line, place.column);
    if (piece.ends_with('\n')) ++place.line;
  }

  [[noreturn]] void refuse() {
    if (csv_error(&parser) != CSV_EPARSE) throw std::bad_alloc();
    raise("tavlox:record:BadQuoting", path, place.line, place.column);
  }

  std::u16string path;
  Receiver receiver;
  csv_parser parser{};
  CellPlace place;
  std::size_t bytesSinceCell = 0;
  std::exception_ptr failure;
};

CsvReader::CsvReader(std::u16string path, Receiver receiver)
    : state_(std::make_unique<State>(std::move(path), std::move(receiver))) {}
CsvReader::~CsvReader() = default;

void CsvReader::take(std::string_view bytes) {
  // Line by line, because the parser does not say in which line it is.
  while (!bytes.empty()) {
    const std::size_t lineEnd = bytes.find('\n');
    const std::size_t size = lineEnd == std::string_view::npos ? bytes.size() : lineEnd + 1;
    state_->parse(bytes.substr(0, size));
    bytes.remove_prefix(size);
  }
}

void CsvReader::finish() {
  const int result = csv_fini(&state_->parser, State::onCell, State::onEndOfRow, state_.get());
  if (state_->failure) std::rethrow_exception(state_->failure);
  if (result != 0) state_->refuse();
}

}  // namespace tavlox::cli
