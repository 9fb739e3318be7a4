#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hosts/cli/command.h"
#include "hosts/cli/output.h"
#include "platform/filter/filter.h"

/// Commands that answer the same question about any number of packages.
namespace tavlox::cli {

inline constexpr Parameter kBelowOption{
    "--recursive", Takes::Flag, "Of folders take all packages below, not only those in them", {}, "-r"};
inline constexpr Parameter kWhereOption{
    "--where",
    Takes::Value,
    "Only records that meet the condition",
    "CONDITION",
    {},
    R"(A condition names fields as --json shows them: SolverName = 'ode4' and StopTime > 10. It knows
= != < <= > >=, like with * and ?, in (...), is empty, and, or, not and parentheses. Texts stand in
quotes; numbers compare as numbers.
)"};
inline constexpr Parameter kJobsOption{
    "--jobs", Takes::Value, "How many processes share the work; by default as many as there are cores", "N"};
/// The value of --jobs. Raises tavlox:cli:NotAJobCount, a mistake in the command line.
std::size_t jobsOf(const Request& request);

/// The packages that a command is asked about.
struct Packages {
  std::vector<std::u16string> paths;
  bool areSeveral = false;  ///< or might have been: records then say which package they are of
  ExitCode exitCode =
      ExitCode::Done;  ///< Failed if a folder had none or could not be read, which was reported
};

/// The words as packages: a folder stands for the packages in it, sorted.
Packages packagesOf(const Request& request, std::span<const std::u16string> words);

/// Answers for all packages: one alone here, several in processes, each of which prints what it has to say of
/// some. That is joined as if one had printed it: the lines of a table, a JSON list, or tables with empty
/// lines between them. `answer` reports packages that it cannot read, and the exit code is then 1.
enum class Joined { Lines, Tables };
ExitCode answerAll(const Request& request, const Packages& packages, std::span<const Column> columns,
                   Joined joined,
                   const std::function<ExitCode(std::span<const std::u16string> packages)>& answer);

/// The same for commands that print records: `answer` adds those of one package to the printer. What it
/// raises is reported if there are several packages, and passes if there is one.
struct RecordQuestion {
  std::span<const Column> columns;
  std::span<const std::u16string_view> lists = {};
  std::function<ExitCode(const std::u16string& package,
                         const std::function<void(const corvan::HostArray&)>& add)>
      answer;
};
ExitCode answerWithRecords(const Request& request, const Packages& packages, const RecordQuestion& question);

/// The condition of --where; lets every record pass where there is none.
class Where {
 public:
  /// Raises filter:where:… errors, which are mistakes in the command line: to be called by a command's check
  /// too. The fields must outlive it.
  Where(const Request& request, std::span<const filter::Field> fields);

  /// Those of the records that meet it. Filename is the package's absolute path, also where the records have
  /// no such field.
  corvan::HostArray select(const corvan::HostArray& records, const std::u16string& package) const;

 private:
  std::span<const filter::Field> fields_;
  std::optional<filter::Filter> filter_;
};

}  // namespace tavlox::cli
