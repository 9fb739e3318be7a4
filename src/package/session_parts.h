#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <boost/iostreams/stream.hpp>

#include "package/scoped_ref.h"
#include "platform/opc/part.h"

/// How the parts of a recorded session are found and read. What is in the run list and the signals parts is
/// the metadata folder's business.
namespace orra::tavloxio {

/// The parts that package-level relationships of one type (tavlox::relationship_types) lead to, in the
/// package's order; none is no error.
std::vector<opc::model::Part> findPartsByRelationshipType(const file::ScopedRef& ref,
                                                          std::u16string_view type);

/// Where a part stream begins to read.
enum class StartAt {
  Current,    ///< where the part's input stream stands
  Beginning,  ///< the part's first byte
};

/// A buffered input stream over the data of a part. An error of the package library while reading reaches the
/// caller of the stream unchanged; an error while closing is ignored.
class PartStream : public boost::iostreams::stream<opc::InputStreamSource> {
 public:
  PartStream(const opc::model::Part& part, StartAt start);
};

/// The compression type that the session's recorder noted, as it is; empty text when the package has no such
/// record. One of more than 1 MiB raises simulation_data_repository:sdr:RecordTooLarge; the JSON library's
/// errors reach the caller unchanged.
std::u16string readCompressionType(const file::ScopedRef& ref);

}  // namespace orra::tavloxio
