#include "hosts/cli/many_files.h"

#include <algorithm>
#include <charconv>

#include <unistd.h>

#include "hosts/cli/error_report.h"
#include "hosts/cli/host_json.h"
#include "hosts/cli/module.h"
#include "hosts/cli/terminal.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/processes/shared_work.h"
#include "platform/session_index/package_search.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using corvan::HostArray;
using foundation::core::except::except_with_causes;
using session_index::Depth;

// Enough that starting a process costs little, few enough that all cores have work to the end.
constexpr std::size_t kMostInPiece = 16;
constexpr std::size_t kMostJobs = 1024;

bool isFolder(const std::u16string& path) {
  try {
    return fs::exists(path) && fs::status(path).type == fs::FileType::Directory;
  } catch (const fs::Error&) {
    return false;  // opening it says why
  }
}

void addFolder(const Request& request, const std::u16string& folder, Packages& packages) {
  const Depth depth = request.has("--recursive") ? Depth::Below : Depth::Folder;
  session_index::PackageSearch found = session_index::findPackages(folder, depth);
  for (const std::u16string& unread : found.unreadableFolders)
    tellError(request.format, except_with_causes("tavlox:cli:FolderNotRead", {unread}));
  const bool isEmpty = found.packages.empty() && found.unreadableFolders.empty();
  if (isEmpty) tellError(request.format, except_with_causes("tavlox:cli:NoPackages", {folder}));
  if (isEmpty || !found.unreadableFolders.empty()) packages.exitCode = ExitCode::Failed;
  std::ranges::move(found.packages, std::back_inserter(packages.paths));
}

/// Puts what several processes printed together.
class Joiner {
 public:
  Joiner(OutputFormat format, std::span<const Column> columns, Joined joined)
      : isJson_(format == OutputFormat::Json), joined_(joined) {
    if (isJson_) print("[");
    if (!isJson_ && isTerminal(stdout)) aligned_.emplace(format, columns);
  }

  void add(std::FILE* output) {
    if (isJson_) return addList(output);
    if (!aligned_) return addLines(output);
    std::string lines;
    forEachPiece(output, [&](std::string_view piece) { lines += piece; });
    aligned_->addLines(lines);
  }

  void finish() {
    if (isJson_) print("]\n");
    if (aligned_) aligned_->finish();
  }

 private:
  static void forEachPiece(std::FILE* output, const auto& take) {
    std::vector<char> piece(std::size_t{64} << 10);
    for (std::size_t count; (count = std::fread(piece.data(), 1, piece.size(), output)) > 0;)
      take(std::string_view(piece.data(), count));
  }

  /// What stands between the brackets of the list, which ends in "]" and a line end.
  void addList(std::FILE* output) {
    std::string kept;
    bool isFirst = true;
    forEachPiece(output, [&](std::string_view piece) {
      if (std::exchange(isFirst, false)) piece.remove_prefix(1);
      kept += piece;
      constexpr std::size_t kEnd = 2;
      if (kept.size() <= kEnd) return;
      if (std::exchange(hasPrinted_, true) && !std::exchange(isInList_, true)) print(",");
      isInList_ = true;
      print(std::string_view(kept).substr(0, kept.size() - kEnd));
      kept.erase(0, kept.size() - kEnd);
    });
    isInList_ = false;
  }

  void addLines(std::FILE* output) {
    bool isFirst = true;
    forEachPiece(output, [&](std::string_view piece) {
      if (std::exchange(isFirst, false) && std::exchange(hasPrinted_, true) && joined_ == Joined::Tables)
        print("\n");
      print(piece);
    });
  }

  bool isJson_;
  Joined joined_;
  std::optional<RecordPrinter> aligned_;
  bool hasPrinted_ = false, isInList_ = false;
};

/// The columns with the package's in front if there are several.
std::vector<Column> columnsFor(const Packages& packages, std::span<const Column> columns) {
  std::vector<Column> all;
  if (packages.areSeveral) all.push_back({"file", u"Filename"});
  all.insert(all.end(), columns.begin(), columns.end());
  return all;
}

/// Records with the field Filename, the absolute path, in front.
HostArray withFilename(const HostArray& records, const std::u16string& package) {
  const HostArray path = HostArray::charRow(fs::absolute(package));
  std::vector<std::u16string_view> names{u"Filename"};
  names.insert(names.end(), records.fieldNames().begin(), records.fieldNames().end());
  HostArray named = HostArray::structure(1, records.elementCount(), names);
  for (std::size_t i = 0; i < records.elementCount(); ++i) {
    named.setField(i, 0, path);
    for (std::size_t field = 1; field < names.size(); ++field)
      named.setField(i, field, records.fieldAt(i, field - 1));
  }
  return named;
}

/// The answer of a process, which has nobody else to report to.
ExitCode answerOrReport(const Request& request, const std::function<ExitCode()>& answer) {
  try {
    const ExitCode answered = answer();
    flushOutput();
    return answered;
  } catch (const std::exception&) {
    report(request.format);
    return ExitCode::Failed;
  }
}

void repeatMessages(std::FILE* messages) {
  char piece[4096];
  for (std::size_t count; (count = std::fread(piece, 1, sizeof piece, messages)) > 0;) {
    eraseProgress();
    printError(std::string_view(piece, count));
  }
}

filter::Value valueOf(const HostArray& value, filter::Kind kind) {
  if (value.kind() == corvan::ArrayKind::Char) return std::u16string(value.text());
  if (kind == filter::Kind::Number)
    return value.isNumeric() && value.isScalar() ? filter::Value(value.scalarAsDouble()) : filter::Value();
  // A list, also where it has one number.
  const std::u16string text = cellText(value);
  return value.isScalar() ? u"[" + text + u"]" : text;
}

/// Has processes answer, each of them for so many packages. Where one ends before it is done, those get a
/// process each: what ended it takes no other package with it.
ExitCode answerPieces(const Request& request, std::span<const std::u16string> all, std::size_t inPiece,
                      const std::function<ExitCode(std::span<const std::u16string>)>& answer,
                      Joiner& joiner) {
  const auto pieceOf = [&](std::size_t index) {
    const auto rest = all.subspan(index * inPiece);
    return rest.first(std::min(inPiece, rest.size()));
  };
  ExitCode result = ExitCode::Done;
  corvan::SharedWork work(
      (all.size() + inPiece - 1) / inPiece, jobsOf(request), [&](std::size_t index, std::FILE* output) {
        ::dup2(fileno(output), STDOUT_FILENO);
        return static_cast<int>(answerOrReport(request, [&] { return answer(pieceOf(index)); }));
      });
  while (const corvan::PieceOfWork* piece = work.next()) {
    const auto packages = pieceOf(piece->index);
    if (!piece->isDone && packages.size() > 1) {
      result = std::max(result, answerPieces(request, packages, 1, answer, joiner));
      continue;
    }
    repeatMessages(piece->messages);
    result = std::max(result, piece->isDone ? ExitCode{piece->result} : ExitCode::Failed);
    if (piece->isDone) joiner.add(piece->output);
    if (!piece->isDone)
      tellError(request.format, except_with_causes("tavlox:cli:ProcessEnded", {packages.front()}));
  }
  return result;
}

}  // namespace

std::size_t jobsOf(const Request& request) {
  if (!request.has("--jobs")) return corvan::coreCount();
  const std::string word = fl::i18n::to_string(request.one("--jobs"));
  std::size_t jobs = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), jobs);
  if (error != std::errc() || end != word.data() + word.size() || jobs == 0 || jobs > kMostJobs)
    foundation::core::except::raise("tavlox:cli:NotAJobCount", request.one("--jobs"));
  return jobs;
}

Packages packagesOf(const Request& request, std::span<const std::u16string> words) {
  Packages packages;
  for (const std::u16string& word : words) {
    if (!isFolder(word)) {
      packages.paths.push_back(word);
      continue;
    }
    packages.areSeveral = true;
    addFolder(request, word, packages);
  }
  packages.areSeveral = packages.areSeveral || packages.paths.size() > 1;
  return packages;
}

ExitCode answerAll(const Request& request, const Packages& packages, std::span<const Column> columns,
                   Joined joined, const std::function<ExitCode(std::span<const std::u16string>)>& answer) {
  const std::span<const std::u16string> all(packages.paths);
  // A failure alone is no empty answer.
  if (all.empty() && packages.exitCode != ExitCode::Done) return packages.exitCode;
  // Tables for people are aligned one by one, which processes without a terminal cannot know.
  const bool isForPeople =
      joined == Joined::Tables && request.format == OutputFormat::Text && isTerminal(stdout);
  if (!packages.areSeveral || isForPeople) return std::max(packages.exitCode, answer(all));
  // Loaded before the processes part, so that a module that is missing is one error and not many.
  fileClass(request);
  const std::size_t inPiece = std::clamp<std::size_t>(all.size() / (4 * jobsOf(request)), 1, kMostInPiece);
  const std::vector<Column> shown = columnsFor(packages, columns);
  Joiner joiner(request.format, shown, joined);
  const ExitCode result = answerPieces(request, all, inPiece, answer, joiner);
  joiner.finish();
  return std::max(packages.exitCode, result);
}

ExitCode answerWithRecords(const Request& request, const Packages& packages, const RecordQuestion& question) {
  const auto answerPiece = [&](std::span<const std::u16string> piece) {
    const std::vector<Column> columns = columnsFor(packages, question.columns);
    RecordPrinter printer(request.format, columns, question.lists);
    ExitCode result = ExitCode::Done;
    bool hasAnswer = false;
    for (const std::u16string& package : piece) {
      try {
        result = std::max(result, question.answer(package, [&](const HostArray& records) {
          hasAnswer = true;
          printer.add(packages.areSeveral ? withFilename(records, package) : records);
        }));
      } catch (const std::exception&) {
        if (!packages.areSeveral) throw;
        // The other packages are still answered.
        report(request.format, package);
        result = ExitCode::Failed;
      }
    }
    // A failure alone is no empty answer.
    if (packages.areSeveral || hasAnswer || result == ExitCode::Done) printer.finish();
    return result;
  };
  return answerAll(request, packages, question.columns, Joined::Lines, answerPiece);
}

Where::Where(const Request& request, std::span<const filter::Field> fields) : fields_(fields) {
  if (request.has("--where")) filter_.emplace(request.one("--where"), fields);
}

HostArray Where::select(const HostArray& records, const std::u16string& package) const {
  if (!filter_) return records;
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < records.elementCount(); ++i) {
    const auto value = [&](std::size_t field) -> filter::Value {
      if (fields_[field].name == u"Filename") return fs::absolute(package);
      return valueOf(records.fieldAt(i, fields_[field].name), fields_[field].kind);
    };
    if (filter_->matches(value)) chosen.push_back(i);
  }
  std::vector<std::u16string_view> names(records.fieldNames().begin(), records.fieldNames().end());
  HostArray selected = HostArray::structure(1, chosen.size(), names);
  for (std::size_t i = 0; i < chosen.size(); ++i)
    for (std::size_t field = 0; field < names.size(); ++field)
      selected.setField(i, field, records.fieldAt(chosen[i], field));
  return selected;
}

}  // namespace tavlox::cli
