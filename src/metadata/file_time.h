#pragma once

#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>

namespace orra::tavloxio {

/// The last-write time of the file, UTC, in microseconds. Raises tavlox:general:FileNotFound if there is no
/// such file and tavlox:general:UnableToReadFile if its status cannot be read, both with the path.
boost::posix_time::ptime fileModificationTime(const std::u16string& path);

/// "15-Nov-2026 12:44:29": local time, the month as the process's time locale abbreviates it.
std::u16string localTimeText(boost::posix_time::ptime time);

}  // namespace orra::tavloxio
