#include "package/compression.h"

#include <Poco/JSON/Object.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include "package/part_stream.h"
#include "package/session_parts.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio {

std::u16string readCompressionType(const file::ScopedRef& ref) {
  const auto parts = findPartsByRelationshipType(ref, tavlox::relationship_types::kCompression);
  if (parts.empty()) return {};
  PartStream stream(parts.front(), StartAt::Current);
  Poco::JSON::Parser parser(new Poco::JSON::ParseHandler);  // the parser counts and frees its handler
  const auto record = parser.parse(stream).extract<Poco::JSON::Object::Ptr>();
  return fl::i18n::to_ustring(record->get("CompressionType").convert<std::string>());
}

}  // namespace orra::tavloxio
