# The build tree has the layout of an installation, so that programs, the module and the
# message catalog find each other by the same relative paths in both.

include(GNUInstallDirs)
set(CMAKE_INSTALL_LIBDIR lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/share/tavlox)
file(CREATE_LINK ${CMAKE_SOURCE_DIR}/catalog ${CMAKE_BINARY_DIR}/share/tavlox/catalog SYMBOLIC)
