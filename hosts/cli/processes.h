#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>

#include "hosts/cli/command.h"

/// Work on many files, spread over processes.
namespace tavlox::cli {

inline constexpr Parameter kJobsOption{
    "--jobs", Takes::Value, "How many processes share the work; by default as many as there are cores", "N"};
/// The value of --jobs. Raises tavlox:cli:NotAJobCount, a mistake in the command line.
std::size_t jobsOf(const Request& request);

/// What came of a piece of work: where the process ended before it was done, `isDone` is false.
struct PieceOfWork {
  std::size_t index;
  std::FILE* output;  ///< from its beginning
  ExitCode exitCode;
  bool isDone;
};

/// Does `count` pieces of work, each in a process of its own that is a copy of this one, `jobs` of them at
/// once. `work` writes to the stream it is given; `take` is called here, for one piece after the other in
/// their order. What a piece says on standard error is said before it is taken. Output waits in unlinked
/// files, so memory does not grow with it, and only so many pieces are ahead of the one to be taken. What
/// `work` raises is reported, and is the exit code 1.
void shareWork(const Request& request, std::size_t count, std::size_t jobs,
               const std::function<ExitCode(std::size_t index, std::FILE* output)>& work,
               const std::function<void(const PieceOfWork&)>& take);

}  // namespace tavlox::cli
