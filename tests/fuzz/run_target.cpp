// What libFuzzer calls, and without libFuzzer a program that plays every file of a folder.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

void TARGET(std::string_view bytes);

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
