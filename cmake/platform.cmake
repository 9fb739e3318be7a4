# corvan_platform_library(NAME name SOURCES … [LINKS …] [PRIVATE_LINKS …])
#
# One folder of the platform: a static library `platform_<name>` that tests link alone, and that
# becomes part of the shared library libcorvan_platform.so. The platform's interface is its headers,
# so its symbols are visible, unlike the module's.

function(corvan_platform_library)
  cmake_parse_arguments(arg "" "NAME" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  add_library(platform_${arg_NAME} STATIC ${arg_SOURCES})
  set_target_properties(platform_${arg_NAME} PROPERTIES CXX_VISIBILITY_PRESET default)
  target_include_directories(platform_${arg_NAME} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(platform_${arg_NAME} PUBLIC ${arg_LINKS} PRIVATE corvan_options ${arg_PRIVATE_LINKS})
  set_property(GLOBAL APPEND PROPERTY CORVAN_PLATFORM_LIBRARIES platform_${arg_NAME})
endfunction()

# Puts the objects of every folder into the one shared library that hosts and modules use. The folders' libraries are
# linked for what they depend on.
function(corvan_platform_shared_library)
  get_property(libraries GLOBAL PROPERTY CORVAN_PLATFORM_LIBRARIES)
  list(TRANSFORM libraries REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
  add_library(corvan_platform SHARED ${objects})
  # The name under which programs find it carries the version of the interface.
  set_target_properties(corvan_platform PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                                   EXPORT_NAME platform)
  # What it needs are libraries of the system, which are not looked for beside it first.
  set_target_properties(corvan_platform PROPERTIES INSTALL_RPATH "")
  target_include_directories(corvan_platform INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
                                                       $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tavlox>)
  target_compile_features(corvan_platform INTERFACE cxx_std_20)
  target_link_libraries(
    corvan_platform
    PRIVATE ${libraries}
    INTERFACE message_table $<BUILD_INTERFACE:Boost::headers> $<BUILD_INTERFACE:Boost::date_time>)
endfunction()
