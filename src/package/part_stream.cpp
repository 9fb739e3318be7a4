#include "package/part_stream.h"

namespace orra::tavloxio {
namespace {

opc::InputStreamSource sourceOver(const opc::model::Part& part, StartAt start) {
  auto input = part.getInputStream();
  if (start == StartAt::Beginning) input->restart();
  return opc::InputStreamSource(std::move(input));
}

}  // namespace

PartStream::PartStream(const opc::model::Part& part, StartAt start)
    : boost::iostreams::stream<opc::InputStreamSource>(sourceOver(part, start)) {
  // Without this a checksum error would look like the end of the data.
  exceptions(std::ios::badbit);
}

}  // namespace orra::tavloxio
