// Runs one command to its end, its output dropped, and prints what the whole of it took: seconds of CPU time
// (user and system, with the processes it waited for), seconds elapsed, peak memory in bytes, and how it
// ended. usage: measure COMMAND…
//
// A program of its own because Linux counts the memory of the process that forked towards the peak of the one
// it becomes. What starts the command must therefore be smaller than anything that is measured.

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

[[noreturn]] void become(char** command) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  execvp(*command, command);
  std::perror(*command);
  _exit(127);
}

}  // namespace

int main(int count, char** words) {
  if (count < 2) return 2;
  const double start = now();
  const pid_t child = fork();
  if (child < 0) return 1;
  if (child == 0) become(words + 1);
  int status = 0;
  rusage usage{};
  while (wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) return 1;
  }
  const double elapsed = now() - start;
  std::printf("%.6f %.6f %ld %d\n", seconds(usage.ru_utime) + seconds(usage.ru_stime), elapsed,
              usage.ru_maxrss * 1024, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}
