#pragma once

#include <array>
#include <cstdio>
#include <string>

#include <sys/wait.h>

/// Programs that are not ours, to read what is written here and to write what is read.
namespace outside {

struct Outcome {
  int status;
  std::string output;
};

inline Outcome run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return {-1, "cannot run " + command};
  std::string output;
  std::array<char, 4096> buffer{};
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe))
    output.append(buffer.data(), count);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

/// Runs Python lines with `zipfile` imported and the path of an archive as `path`.
inline Outcome python(const std::string& path, const std::string& lines) {
  return run("/usr/bin/python3 -c 'import sys, zipfile, struct\npath = sys.argv[1]\n" + lines + "' '" + path +
             "'");
}

/// "" if both command-line tools find the archive sound, data and all; else what they say.
inline std::string complaintsAbout(const std::string& path) {
  for (const std::string& command : {"unzip -tqq '" + path + "'", "7z t -bd '" + path + "'"}) {
    const Outcome outcome = run(command);
    const bool warns = outcome.output.find("WARNING") != std::string::npos;
    if (outcome.status != 0 || warns) return command + ": " + outcome.output;
  }
  return "";
}

}  // namespace outside
