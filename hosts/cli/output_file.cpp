#include "hosts/cli/output_file.h"

#include "platform/errors/package_errors.h"
#include "platform/files/durable_file.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {

namespace fs = fl::filesystem;
using foundation::core::except::raise;

OutputFile::OutputFile(const Request& request) {
  const std::u16string& output = request.one("--output");
  // Not even with --force: the recording would be gone.
  for (const std::string_view read : {"FILE", "A", "B"}) {
    for (const std::u16string& input : request.all(read))
      if (fs::weakly_canonical(output) == fs::weakly_canonical(input))
        raise("tavlox:cli:OutputIsFile", output);
  }
  const bool isThere = fs::exists(output);
  if (isThere && !request.has("--force")) raise("tavlox:cli:OutputFileExists", output);
  path_ = fl::i18n::to_string(output);
  if (!isThere) {
    file_ = std::make_unique<fs::DurableFile>(path_);
    return;
  }
  if (fs::status(output).type != fs::FileType::Regular) raise("tavlox:cli:OutputNotAFile", output);
  const fs::FileIdentity replaced = fs::InputFile(path_).identity();
  file_ = std::make_unique<fs::DurableFile>(path_, replaced, fs::DurableFile::Start::Empty);
}

OutputFile::~OutputFile() = default;

void OutputFile::write(std::string_view bytes) {
  const int error = fs::writeAt(file_->descriptor(), size_, bytes.data(), bytes.size());
  if (error != 0) opc::raise("opc:save:CannotWrite", path_, fs::systemReason(error));
  size_ += bytes.size();
}

int OutputFile::descriptor() const { return file_->descriptor(); }

void OutputFile::finish() { file_->commit(); }

}  // namespace tavlox::cli
