// The library tavlox_io_json.so: what of the module needs POCO.

#include <Poco/JSON/Object.h>
#include <Poco/JSON/ParseHandler.h>
#include <Poco/JSON/Parser.h>

#include "package/compression_record.h"

extern "C" [[gnu::visibility("default")]] void tavloxCompressionType(const std::string& record,
                                                                     std::string& type) {
  Poco::JSON::Parser parser(new Poco::JSON::ParseHandler);  // the parser counts and frees its handler
  const auto object = parser.parse(record).extract<Poco::JSON::Object::Ptr>();
  type = object->get("CompressionType").convert<std::string>();
}
