# How every target is compiled: C++20, hidden symbols, the chosen sanitizers; and corvan_options, which every target
# links for its warnings.

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

# Nobody puts functions of the platform library in place of its own, so they may be called directly and inlined. Clang
# takes this for granted.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(-fno-semantic-interposition)
endif()

add_library(corvan_options INTERFACE)
target_compile_options(
  corvan_options
  INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
            # Designated initialisers are used just to leave the other members at their defaults.
            -Wno-missing-field-initializers
            # GCC 12 sees overlaps in the concatenation of std::string that are not there (its bug 105651).
            $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# Offsets are 64-bit on every machine this is built for.
target_compile_definitions(corvan_options INTERFACE _FILE_OFFSET_BITS=64)

# For all targets at once: a program must be instrumented as a whole.
if(TAVLOX_SANITIZE)
  add_compile_options(-fsanitize=${TAVLOX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TAVLOX_SANITIZE})
endif()

# What a module lacks shows when it is linked, not when it is loaded. Clang gives the sanitizers' runtime to the program
# alone, so that modules lack it.
if(NOT (TAVLOX_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang"))
  set(CORVAN_NO_UNDEFINED LINKER:--no-undefined)
endif()
