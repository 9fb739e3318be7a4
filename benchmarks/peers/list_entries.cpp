// Opens an archive and asks for the size of each entry, which is all that libzip's users do before they read
// one. usage: list_entries ARCHIVE [check|utc]    with "check" libzip also compares the directory with the
// local headers; with "utc" it is spared the look at a file that the time zone costs it for each entry

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "archive.h"

int main(int count, char** words) {
  const std::string_view how = count > 2 ? words[2] : "";
  if (how == "utc") setenv("TZ", "UTC", 1);
  const Archive archive(words[1], how == "check" ? ZIP_CHECKCONS : 0);
  zip_uint64_t bytes = 0;
  for (zip_int64_t i = 0; i < archive.size(); ++i) bytes += archive.entry(i).size;
  std::printf("%lld entries, %llu bytes\n", static_cast<long long>(archive.size()),
              static_cast<unsigned long long>(bytes));
}
