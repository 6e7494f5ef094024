# Installs the public headers of a library: those that a user starts from, and all that these
# include. A header that nobody gets at from there is private and stays here.
#
# Run by "cmake --install", so that it sees the includes as they are then. Given by the caller:
#
#   varnholt_source        the top of the repository
#   varnholt_destination   the include folder, which keeps the paths that headers are included by
#   varnholt_roots         the headers to start from, from the top; patterns of file(GLOB) as well

# "IN_LIST" below.
cmake_policy(SET CMP0057 NEW)

set(pending "")
foreach(root IN LISTS varnholt_roots)
  file(GLOB headers RELATIVE ${varnholt_source} ${varnholt_source}/${root})
  if(NOT headers)
    message(FATAL_ERROR "there is no header ${root} to install: correct the list of public headers")
  endif()
  list(APPEND pending ${headers})
endforeach()

set(public "")
while(pending)
  list(POP_FRONT pending header)
  if(header IN_LIST public)
    continue()
  endif()
  list(APPEND public ${header})
  file(STRINGS ${varnholt_source}/${header} includes REGEX "^#include \"")
  foreach(include IN LISTS includes)
    string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" include "${include}")
    list(APPEND pending ${include})
  endforeach()
endwhile()

foreach(header IN LISTS public)
  cmake_path(GET header PARENT_PATH folder)
  file(INSTALL DESTINATION ${varnholt_destination}/${folder} TYPE FILE
    FILES ${varnholt_source}/${header})
endforeach()
