#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace samples {

/// Bytes that cannot be made smaller, the same in every run.
inline std::string noise(std::size_t size) {
  std::mt19937_64 engine(7);
  std::string bytes;
  for (bytes.reserve(size + 8); bytes.size() < size;) {
    const std::uint64_t number = engine();
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
  }
  bytes.resize(size);
  return bytes;
}

/// Rows of numbers, as a recorder writes them.
inline std::string rows(std::size_t size) {
  std::mt19937 engine(11);
  std::string text = "time [s],voltage [V]\n";
  for (int i = 0; text.size() < size; ++i)
    text += std::to_string(i) + "," + std::to_string(engine() / 1e6) + "\n";
  text.resize(size);
  return text;
}

}  // namespace samples
