#include "platform/opc/package_state.h"

#include <filesystem>
#include <utility>

#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_save.h"
#include "platform/opc/part_streams.h"
#include "platform/zip/entry_reader.h"

namespace opc::model {

PackageState::PackageState(std::string path, Access access, const zip::Limits& limits,
                           std::shared_ptr<const fl::filesystem::InputFile> file,
                           std::shared_ptr<const PackageIndex> index,
                           std::optional<fl::filesystem::FileIdentity> replaced)
    : path_(std::move(path)), access_(access), limits_(limits), file_(std::move(file)), replaced_(replaced) {
  contents_.emplace(path_, std::move(index), limits_);
}

bool PackageState::needsSaving() const {
  if (!isOpen() || access_ == Access::Read) return false;
  return !file_ || contents_->isChanged();
}

const PackageContents& PackageState::contents() const {
  if (!contents_) raise("opc:package:Closed", path_);
  return *contents_;
}

PackageContents& PackageState::editContents() {
  if (!contents_) raise("opc:package:Closed", path_);
  if (access_ == Access::Read) raise("opc:package:NotModifiable", path_);
  return *contents_;
}

PartView PackageState::part(const PartName& name) const {
  const auto view = contents().find(name.key());
  if (!view) raise("opc:part:NotFound", path_, name.text());
  return *view;
}

std::shared_ptr<InputStream> PackageState::openInput(const PartName& name) {
  return std::make_shared<PartInputStream>(shared_from_this(), name);
}

std::shared_ptr<OutputStream> PackageState::openOutput(const PartName& name) {
  PackageContents& contents = editContents();
  part(name);
  auto data = std::make_shared<WrittenData>(spoolStorage());
  contents.replaceData(name.key(), data);
  return std::make_shared<PartOutputStream>(shared_from_this(), std::move(data));
}

std::string PackageState::readWhole(const PartName& name, std::uint64_t limit) const {
  const PartView view = part(name);
  if (view.entry) return zip::readWhole(file_, contents_->index().entries()[*view.entry], limit);
  std::string bytes;
  if (!view.data) return bytes;
  if (!view.data->spool.isFinished()) raise("opc:part:StillWritten", path_, name.text());
  if (view.data->spool.size() > limit) raise("opc:part:TooLarge", path_, name.text(), limit);
  bytes.resize(view.data->spool.size());
  zip::Spool::Reader reader(view.data->spool);
  std::size_t filled = 0;
  while (const std::size_t got = reader.read(bytes.data() + filled, bytes.size() - filled)) filled += got;
  return bytes;
}

void PackageState::write(const PartName& name, std::string_view bytes) {
  openOutput(name)->write(bytes.data(), bytes.size());
}

void PackageState::save() { savePackage(path_, *contents_, file_, replaced_, spoolStorage()); }

void PackageState::close() noexcept {
  contents_.reset();
  file_.reset();
}

void PackageState::countInflated(std::uint64_t bytes) {
  inflated_ += bytes;
  if (inflated_ > limits_.inflatedBytesPerOpen)
    raise("opc:package:TooMuchData", path_, limits_.inflatedBytesPerOpen);
}

// Beside the package, where the data goes in the end anyway and the temporary folder's size does not matter.
// In a folder that cannot be written the data still finds a place, and it is the save that fails.
const std::shared_ptr<zip::SpoolStorage>& PackageState::spoolStorage() {
  if (spoolStorage_) return spoolStorage_;
  std::error_code ignored;
  const std::filesystem::path target = std::filesystem::weakly_canonical(path_, ignored);
  std::filesystem::path folder = target.parent_path();
  if (access(folder.c_str(), W_OK | X_OK) != 0) folder = std::filesystem::temp_directory_path(ignored);
  spoolStorage_ = std::make_shared<zip::SpoolStorage>(folder.string());
  return spoolStorage_;
}

}  // namespace opc::model
