#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "hosts/cli/command.h"

namespace fl::filesystem {
class DurableFile;
}

/// Results that go to a file of the user's choice.
namespace tavlox::cli {

inline constexpr Parameter kOutputOption{"--output", Takes::Value,
                                         "The file to write instead of standard output", "OUT", "-o"};

/// The file of the option --output. It appears under its name when it is complete; until then what was there
/// stays, and goes only with --force.
class OutputFile {
 public:
  /// What takes the next bytes of a result, wherever it goes.
  using Sink = std::function<void(std::string_view)>;

  /// Raises tavlox:cli:OutputFileExists, and tavlox:cli:OutputIsFile if it is one that the command reads.
  /// What the disk refuses raises opc::Exception, here and below.
  explicit OutputFile(const Request& request);
  ~OutputFile();

  void write(std::string_view bytes);
  /// For who writes the file otherwise; stays this object's.
  int descriptor() const;
  /// Without it nothing is kept.
  void finish();

 private:
  std::string path_;
  std::unique_ptr<fl::filesystem::DurableFile> file_;
  std::uint64_t size_ = 0;
};

}  // namespace tavlox::cli
