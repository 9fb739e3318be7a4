#pragma once

#include <boost/iostreams/stream.hpp>

#include "platform/opc/part.h"

namespace orra::tavloxio {

/// Where a part stream begins to read.
enum class StartAt {
  Current,    ///< where the part's input stream stands
  Beginning,  ///< the part's first byte
};

/// A buffered input stream over the data of a package part. An error of the package library while reading
/// reaches the caller of the stream unchanged; an error while closing is ignored.
class PartStream : public boost::iostreams::stream<opc::InputStreamSource> {
 public:
  PartStream(const opc::model::Part& part, StartAt start);
};

}  // namespace orra::tavloxio
