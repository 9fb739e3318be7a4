# What is installed and where. Files find each other by relative paths, so that an installed tree can be moved.
# packaging/debian says which of them make which package.

include(CMakePackageConfigHelpers)

# Whatever the umask of the person who installs: others must be able to read it.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# ---- what people use ----

install(TARGETS tavlox tavlox_io tavlox_io_json RUNTIME LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tavlox)
if(TARGET tavlox_hdf5)
  install(TARGETS tavlox_hdf5 LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tavlox)
endif()
install(DIRECTORY ${PROJECT_BINARY_DIR}/manual/ DESTINATION ${CMAKE_INSTALL_DATADIR})
install(DIRECTORY catalog DESTINATION ${CMAKE_INSTALL_DATADIR}/tavlox)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/tavlox)

# ---- what a host is built with: the object system, values, errors and texts ----

install(TARGETS corvan_platform message_table EXPORT tavlox)
set(headers ${CMAKE_INSTALL_INCLUDEDIR}/tavlox)
foreach(folder zobs arrays errors progress text)
  # The two headers left out are for the platform's own tables.
  install(
    DIRECTORY src/platform/${folder}
    DESTINATION ${headers}/platform
    FILES_MATCHING
    PATTERN "*.h"
    PATTERN "text_hash.h" EXCLUDE
    PATTERN "text_index.h" EXCLUDE)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/include/generated/message_table.inc DESTINATION ${headers}/generated)

set(configuration ${CMAKE_INSTALL_LIBDIR}/cmake/tavlox)
install(EXPORT tavlox NAMESPACE tavlox:: FILE tavlox-config.cmake DESTINATION ${configuration})
write_basic_package_version_file(tavlox-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavlox-config-version.cmake DESTINATION ${configuration})
configure_file(cmake/tavlox.pc.in tavlox.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavlox.pc DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig)
