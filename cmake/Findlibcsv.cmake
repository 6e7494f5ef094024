# libcsv, which comes without a package configuration: libcsv::libcsv. Also installed beside our own
# configuration, for whoever links the installed embedded host.
find_path(libcsv_INCLUDE_DIR csv.h)
find_library(libcsv_LIBRARY csv)
mark_as_advanced(libcsv_INCLUDE_DIR libcsv_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(libcsv REQUIRED_VARS libcsv_LIBRARY libcsv_INCLUDE_DIR)

if(libcsv_FOUND AND NOT TARGET libcsv::libcsv)
  add_library(libcsv::libcsv UNKNOWN IMPORTED)
  set_target_properties(libcsv::libcsv PROPERTIES
    IMPORTED_LOCATION ${libcsv_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${libcsv_INCLUDE_DIR})
endif()
