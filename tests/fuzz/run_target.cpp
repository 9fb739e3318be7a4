// What libFuzzer calls, and without libFuzzer a program that plays every file of a folder.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <unistd.h>

void TARGET(std::string_view bytes);

// Saving syncs, which takes no time where there is no disk.
[[maybe_unused]] const int kInMemory = access("/dev/shm", W_OK) == 0 ? setenv("TMPDIR", "/dev/shm", 1) : 0;

#ifdef TAVLOX_FUZZ

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TARGET({reinterpret_cast<const char*>(data), size});
  return 0;
}

#else

int main(int, char** folders) {
  int played = 0;
  for (const auto& file : std::filesystem::directory_iterator(folders[1])) {
    // Said before it is played: the last one named is the one that ended the program.
    std::puts(file.path().c_str());
    std::fflush(stdout);
    std::ifstream stream(file.path(), std::ios::binary);
    TARGET(std::string(std::istreambuf_iterator<char>(stream), {}));
    ++played;
  }
  return played > 0 ? 0 : 1;
}

#endif
