# How every target is compiled: C++20, hidden symbols, strict warnings, the chosen sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
# The hot loops lie in other libraries: -O3 only makes the build longer.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough)
# Designated initialisers are used just to leave the other members at their defaults.
add_compile_options(-Wno-missing-field-initializers)
# GCC 12 sees overlaps in the concatenation of std::string that are not there (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  add_compile_options(-Wno-restrict)
endif()
# Offsets are 64-bit on every machine this is built for.
add_compile_definitions(_FILE_OFFSET_BITS=64)

if(TAVLOX_SANITIZE)
  add_compile_options(-fsanitize=${TAVLOX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TAVLOX_SANITIZE})
endif()
