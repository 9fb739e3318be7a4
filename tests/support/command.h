#pragma once

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

#include <sys/wait.h>

/// Programs that are not ours, to read what is written here and to write what is read.
namespace support {

/// The word as the shell takes it for one, whatever it holds.
inline std::string shellWord(std::string_view word) {
  std::string text = "'";
  for (const char letter : word) letter == '\'' ? text += "'\\''" : text += letter;
  return text + "'";
}

/// What a command of the shell prints, on standard error too, with "exit N" behind it if it fails.
inline std::string outputOf(const std::string& command) {
  FILE* pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  std::array<char, 4096> block;
  while (const std::size_t got = fread(block.data(), 1, block.size(), pipe)) output.append(block.data(), got);
  const int status = pclose(pipe);
  if (status == 0) return output;
  return output + "exit " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

/// What lines of Python print, with `path` for the file they are about, and zipfile imported.
inline std::string python(std::string_view path, std::string_view lines) {
  const std::string program = "import sys, zipfile\npath = sys.argv[1]\n" + std::string(lines);
  return outputOf("/usr/bin/python3 -c " + shellWord(program) + " " + shellWord(path));
}

/// "" if both unzip and 7z find the archive sound, data and all; else what they say.
inline std::string complaintsAbout(std::string_view archive) {
  std::string complaints = outputOf("unzip -tqq " + shellWord(archive));
  // 7z says much when all is well, and succeeds with a warning.
  const std::string seven = outputOf("7z t -bd " + shellWord(archive));
  if (seven.find("exit ") != std::string::npos || seven.find("WARNING") != std::string::npos)
    complaints += seven;
  return complaints;
}

}  // namespace support
