# The build tree has the layout of an installation, so that programs, the module and the
# message catalog find each other by the same relative paths in both.

include(GNUInstallDirs)
set(CMAKE_INSTALL_LIBDIR lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# The same in both, too. CMake would pad the build tree's own with colons, to make room for the installed one, and each
# colon has the loader look for libraries in the current folder.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
# Nothing is loaded that nothing calls.
add_link_options(LINKER:--as-needed)

file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/share/tavlox)
file(CREATE_LINK ${CMAKE_SOURCE_DIR}/catalog ${CMAKE_BINARY_DIR}/share/tavlox/catalog SYMBOLIC)
