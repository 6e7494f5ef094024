# What "cmake --install" puts where, and what find_package(varnholt_genetic) finds there.
#
#   include/search_templates/genetic/...   headers, under the paths that they are included by
#   lib/                                   the static libraries
#   lib/cmake/varnholt_genetic/            the package configuration
#   bin/genetic-search                     the program
#
# The embedded host and the program are installed where they are built. The wheel of the Python
# module takes its own files by the install component "python" and none of these.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(varnholt_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/varnholt_genetic)

# varnholt_install_library(TARGET EXPORTED_NAME HEADER_FOLDER): the target becomes
# varnholt::EXPORTED_NAME, described by varnholt_EXPORTED_NAME.cmake.
function(varnholt_install_library target exported_name folder)
  cmake_path(GET folder PARENT_PATH parent)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${exported_name})
  target_include_directories(${target}
    PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  install(TARGETS ${target} EXPORT varnholt_${exported_name}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${parent}
    COMPONENT development FILES_MATCHING PATTERN "*.hpp")
  install(EXPORT varnholt_${exported_name} NAMESPACE varnholt::
    DESTINATION ${varnholt_package_dir} COMPONENT development)
endfunction()

varnholt_install_library(varnholt_genetic genetic search_templates/genetic)
if(TARGET varnholt_embedded_host)
  varnholt_install_library(varnholt_embedded_host embedded_host hosts/embedded)
endif()
if(TARGET genetic-search)
  install(TARGETS genetic-search
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
endif()

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/varnholt_geneticConfig.cmake.in
  ${PROJECT_BINARY_DIR}/varnholt_geneticConfig.cmake
  INSTALL_DESTINATION ${varnholt_package_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/varnholt_geneticConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/varnholt_geneticConfig.cmake
  ${PROJECT_BINARY_DIR}/varnholt_geneticConfigVersion.cmake
  DESTINATION ${varnholt_package_dir} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
