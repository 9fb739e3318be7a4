#include "platform/export_file/json_array_part.h"

namespace tavlox {
namespace {

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

}  // namespace

void JsonArrayPart::add(std::string_view element) {
  if (!empty_) piece_ += ",\n";
  empty_ = false;
  piece_ += element;
  if (piece_.size() >= kPieceBytes) writeOut();
}

void JsonArrayPart::finish() {
  piece_ += "]\n";
  writeOut();
  output_.reset();
}

void JsonArrayPart::writeOut() {
  if (output_ == nullptr) output_ = part_.getOutputStream();
  output_->write(piece_.data(), piece_.size());
  piece_.clear();
}

}  // namespace tavlox
