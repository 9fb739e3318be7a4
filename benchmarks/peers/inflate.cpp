// Extracts one deflated entry with nothing but the fastest inflater there is, checksum included.
// usage: inflate ARCHIVE ENTRY FILE

#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

#include <isa-l.h>

#include "archive.h"

namespace {

constexpr std::size_t kBlock = 256 << 10;

void extract(const Archive& archive, const zip_stat_t& entry, std::FILE* out) {
  const Archive::File in = archive.open(entry, ZIP_FL_COMPRESSED);
  std::vector<std::uint8_t> packed(kBlock);
  std::vector<std::uint8_t> data(kBlock);
  inflate_state state;
  isal_inflate_init(&state);
  std::uint32_t checksum = 0;
  while (state.block_state != ISAL_BLOCK_FINISH) {
    if (state.avail_in == 0) {
      const zip_int64_t got = zip_fread(in.get(), packed.data(), packed.size());
      if (got <= 0) throw std::runtime_error("truncated");
      state.next_in = packed.data();
      state.avail_in = static_cast<std::uint32_t>(got);
    }
    state.next_out = data.data();
    state.avail_out = kBlock;
    if (isal_inflate(&state) != ISAL_DECOMP_OK) throw std::runtime_error("does not inflate");
    const std::size_t size = kBlock - state.avail_out;
    checksum = crc32_gzip_refl(checksum, data.data(), size);
    if (std::fwrite(data.data(), 1, size, out) != size) throw std::runtime_error("cannot write");
  }
  if (checksum != entry.crc) throw std::runtime_error("wrong checksum");
}

}  // namespace

int main(int /*count*/, char** words) {
  const Archive archive(words[1]);
  const std::string_view wanted = words[2];
  std::FILE* out = std::fopen(words[3], "wb");
  if (out == nullptr) return 1;
  std::setvbuf(out, nullptr, _IONBF, 0);
  for (zip_int64_t i = 0; i < archive.size(); ++i) {
    const zip_stat_t entry = archive.entry(i);
    if (entry.name == wanted) return extract(archive, entry, out), std::fclose(out);
  }
  return 1;
}
