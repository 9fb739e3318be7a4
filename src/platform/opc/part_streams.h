#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "platform/opc/package_state.h"
#include "platform/opc/part_name.h"
#include "platform/opc/streams.h"
#include "platform/opc/written_data.h"
#include "platform/zip/entry_reader.h"

namespace opc {

/// Reads a part: its entry in the file, or what was written since. Data that is being written cannot be read
/// yet.
class PartInputStream : public InputStream {
 public:
  PartInputStream(std::shared_ptr<model::PackageState> state, model::PartName name);
  std::size_t read(void* into, std::size_t count) override;
  void restart() override;

 private:
  void open();
  std::size_t readFromSource(void* into, std::size_t count);

  std::shared_ptr<model::PackageState> state_;
  model::PartName name_;
  std::optional<zip::EntryReader> entry_;
  std::shared_ptr<WrittenData> data_;  // outlives its reader
  std::optional<zip::Spool::Reader> written_;
};

/// Writes the new data of a part. The last reference ends it.
class PartOutputStream : public OutputStream {
 public:
  PartOutputStream(std::shared_ptr<model::PackageState> state, std::shared_ptr<WrittenData> data);
  ~PartOutputStream() override;
  void write(const void* data, std::size_t count) override;
  void abandon() noexcept override { data_->isBroken = true; }

 private:
  std::shared_ptr<model::PackageState> state_;
  std::shared_ptr<WrittenData> data_;
};

}  // namespace opc
