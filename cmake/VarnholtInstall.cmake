# What "cmake --install" puts where, and what find_package(varnholt_genetic) finds there.
#
#   include/varnholt/search_templates/genetic/...   public headers, by the paths of their includes
#   include/varnholt/hosts/embedded/...             likewise
#   lib/                                            the static libraries
#   lib/cmake/varnholt_genetic/                     the package configuration
#   bin/genetic-search                              the program
#
# Public are the headers listed here, and all that these include (cmake/InstallHeaders.cmake).
#
# The embedded host and the program are installed where they are built. The wheel of the Python
# module takes its own files by the install component "python" and none of these.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(varnholt_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/varnholt_genetic)
set(varnholt_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/varnholt)

# varnholt_install_library(TARGET EXPORTED_NAME HEADER...): the target becomes
# varnholt::EXPORTED_NAME, described by varnholt_EXPORTED_NAME.cmake, with these public headers.
function(varnholt_install_library target exported_name)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${exported_name})
  target_include_directories(${target} PUBLIC $<INSTALL_INTERFACE:${varnholt_include_dir}>)
  install(TARGETS ${target} EXPORT varnholt_${exported_name}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  install(CODE "
    set(varnholt_source \"${PROJECT_SOURCE_DIR}\")
    set(varnholt_destination \"\${CMAKE_INSTALL_PREFIX}/${varnholt_include_dir}\")
    set(varnholt_roots \"${ARGN}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/InstallHeaders.cmake\")
    " COMPONENT development)
  install(EXPORT varnholt_${exported_name} NAMESPACE varnholt::
    DESTINATION ${varnholt_package_dir} COMPONENT development)
endfunction()

# What a host derives from and works with: the chief header, the classes of a host, and the helpers
# for values, graphs and failures that are worth having in an evaluator or a planner.
varnholt_install_library(varnholt_genetic genetic
  search_templates/genetic/driver/genetic.hpp
  search_templates/genetic/host/*.hpp
  search_templates/genetic/value/copy.hpp
  search_templates/genetic/value/digest.hpp
  search_templates/genetic/value/error_object.hpp
  search_templates/genetic/value/json_text.hpp
  search_templates/genetic/value/tolerant.hpp
  search_templates/genetic/settings/reason_tables.hpp
  search_templates/genetic/graph/canonical_text.hpp
  search_templates/genetic/graph/structural_key.hpp)
configure_file(${PROJECT_SOURCE_DIR}/cmake/version.hpp.in ${PROJECT_BINARY_DIR}/version.hpp @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/version.hpp
  DESTINATION ${varnholt_include_dir}/search_templates/genetic COMPONENT development)

# What runs a search and reads what it stored. The rooms below are the host's own.
if(TARGET varnholt_embedded_host)
  varnholt_install_library(varnholt_embedded_host embedded_host
    hosts/embedded/market/price_file.hpp
    hosts/embedded/vocabulary/expression_text.hpp
    hosts/embedded/config/host_config.hpp
    hosts/embedded/store/store_error.hpp
    hosts/embedded/store/store_reader.hpp
    hosts/embedded/search/search_run.hpp
    hosts/embedded/search/seed_graphs.hpp
    hosts/embedded/search/signal_export.hpp)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/Findlibcsv.cmake
    DESTINATION ${varnholt_package_dir} COMPONENT development)
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
