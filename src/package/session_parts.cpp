#include "package/session_parts.h"

#include "package/compression_record.h"
#include "platform/errors/exceptions.h"
#include "platform/repository/records.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio {

using foundation::core::except::raise;

namespace {

opc::InputStreamSource sourceOver(const opc::model::Part& part, StartAt start) {
  // Copies of a Part share one input stream, which stands where its last reader left it.
  auto input = part.getInputStream();
  if (start == StartAt::Beginning) input->restart();
  return opc::InputStreamSource(std::move(input));
}

}  // namespace

std::vector<opc::model::Part> findPartsByRelationshipType(const file::ScopedRef& ref,
                                                          std::u16string_view type) {
  return ref.file().getPartsByRelationshipType(type);
}

PartStream::PartStream(const opc::model::Part& part, StartAt start)
    : boost::iostreams::stream<opc::InputStreamSource>(sourceOver(part, start)) {
  // Without this a checksum error would look like the end of the data.
  exceptions(std::ios::badbit);
}

std::u16string readCompressionType(const file::ScopedRef& ref) {
  const auto parts = findPartsByRelationshipType(ref, tavlox::relationship_types::kCompression);
  if (parts.empty()) return {};
  PartStream stream(parts.front(), StartAt::Current);
  constexpr std::size_t kMost = orra::kSessionLimits.compressionRecordBytes;
  // One byte more than is allowed, so that a record that is too large shows without reading all of it.
  std::string json(kMost + 1, '\0');
  json.resize(static_cast<std::size_t>(stream.read(json.data(), kMost + 1).gcount()));
  if (json.size() > kMost)
    raise("simulation_data_repository:sdr:RecordTooLarge", "compression record", "1 MiB");
  return fl::i18n::to_ustring(compressionTypeOf(json));
}

}  // namespace orra::tavloxio
