#pragma once

#include <cstddef>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>

/// Work on many files, spread over processes: platform and modules have no threads.
namespace corvan {

/// What came of one piece of work.
struct PieceOfWork {
  std::size_t index;
  std::FILE* output;    ///< what the work wrote, from its beginning
  std::FILE* messages;  ///< what it said on standard error, likewise
  bool isDone;          ///< false if the process ended before the work was done
  int result;           ///< what the work gave, 0 to 255
};

/// As many processes as there are cores that this one may use.
std::size_t coreCount();

/// Some pieces of work, each done in a process of its own that is a copy of this one, several at once. Output
/// waits in files without a name, so that memory does not grow with it, and only so many pieces are ahead of
/// the one that is asked for next. Progress is not reported from within a piece.
class SharedWork {
 public:
  /// `work` writes to the stream that it is given. What it raises ends the process as a crash would: it has
  /// to be told by then. What waits in the buffers of the C library's streams is written before a process
  /// starts.
  using Work = std::function<int(std::size_t index, std::FILE* output)>;
  SharedWork(std::size_t count, std::size_t jobs, Work work);
  /// Ends the processes that are left.
  ~SharedWork();
  SharedWork(const SharedWork&) = delete;
  SharedWork& operator=(const SharedWork&) = delete;

  /// The piece behind the one given last, in the order of their indices; waits for it. Null behind the last
  /// one. Valid until the next call. Raises fl:process:CannotStart, and fl:process:NoSpool where the folder
  /// for temporary files cannot be used. Reports progress, whose listener may raise to end the work.
  const PieceOfWork* next();

  /// Starts processes in the place of those that have ended, as `next` does. For whoever is longer at work on
  /// a piece than a process is at making one: call it now and then, the cores have nothing to do otherwise.
  void keepBusy();

 private:
  struct Child;
  void start();
  void noticeEnds(int milliseconds);

  std::size_t count_, jobs_;
  Work work_;
  std::deque<std::unique_ptr<Child>> children_;
  std::unique_ptr<Child> taken_;  ///< whose piece was given last
  PieceOfWork piece_{};
  std::size_t started_ = 0, running_ = 0;
};

}  // namespace corvan
