#include "metadata/file_time.h"

#include <ctime>

#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio {

using boost::posix_time::ptime;
using foundation::core::except::raise;

ptime fileModificationTime(const std::u16string& path) {
  if (!fl::filesystem::exists(path)) raise("tavlox:general:FileNotFound", path);
  try {
    return fl::filesystem::status(path).lastWriteTime;
  } catch (...) {
    raise("tavlox:general:UnableToReadFile", path);
  }
}

std::u16string localTimeText(ptime time) {
  const ptime epoch(boost::gregorian::date(1970, 1, 1));
  const std::time_t seconds = (time - epoch).total_microseconds() / 1'000'000;
  char text[100];
  const std::size_t length = std::strftime(text, sizeof text, "%d-%b-%Y %H:%M:%S", std::localtime(&seconds));
  return fl::i18n::to_ustring_lossy({text, length});
}

}  // namespace orra::tavloxio
