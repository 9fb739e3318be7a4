// Opens an archive and asks for the size of each entry, which is all that libzip's users do before they read
// one. usage: list_entries ARCHIVE [check]    with "check" libzip also compares the directory with the local
// headers

#include <cstdio>

#include "archive.h"

int main(int count, char** words) {
  const Archive archive(words[1], count > 2 ? ZIP_CHECKCONS : 0);
  zip_uint64_t bytes = 0;
  for (zip_int64_t i = 0; i < archive.size(); ++i) bytes += archive.entry(i).size;
  std::printf("%lld entries, %llu bytes\n", static_cast<long long>(archive.size()),
              static_cast<unsigned long long>(bytes));
}
