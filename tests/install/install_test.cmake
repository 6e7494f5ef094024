# Installs what is built into an empty folder, then builds and runs projects that know nothing but
# find_package(varnholt_genetic) and that folder: the example of a host, and a consumer of the
# embedded host. The folder is moved in between, so that a path of the build that slipped into the
# package is noticed.

function(run)
  execute_process(COMMAND ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nfailed (${result}):\n${output}${errors}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(build project folder)
  run(${CMAKE_COMMAND} -S ${project} -B ${folder} -G ${GENERATOR}
    -D CMAKE_BUILD_TYPE=Release -D CMAKE_CXX_COMPILER=${COMPILER}
    -D CMAKE_PREFIX_PATH=${WORK}/prefix ${ARGN})
  run(${CMAKE_COMMAND} --build ${folder})
endfunction()

function(expect text)
  if(NOT output MATCHES "${text}")
    message(FATAL_ERROR "this was to match\n${text}\nand is\n${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK}/first ${WORK}/prefix ${WORK}/consumer ${WORK}/example)
run(${CMAKE_COMMAND} --install ${BUILT} --prefix ${WORK}/first --component development)
file(RENAME ${WORK}/first ${WORK}/prefix)

# Nothing but public headers, all of them below one folder, and each finds what it includes.
file(GLOB_RECURSE headers RELATIVE ${WORK}/prefix/include ${WORK}/prefix/include/*)
set(all_headers "")
foreach(header IN LISTS headers)
  if(NOT header MATCHES "^varnholt/(search_templates/genetic|hosts/embedded)/.*\\.hpp$")
    message(FATAL_ERROR "${header} has no business among the installed headers")
  endif()
  string(REPLACE "varnholt/" "" header ${header})
  string(APPEND all_headers "#include \"${header}\"\n")
endforeach()
file(WRITE ${WORK}/all_headers.cpp "${all_headers}")
foreach(private
    search_templates/genetic/driver/search_loop.cpp
    search_templates/genetic/process/attempt_ledger.hpp
    search_templates/genetic/value/representation.hpp
    hosts/embedded/pool/worker.hpp
    hosts/embedded/store/sqlite_database.hpp)
  if(EXISTS ${WORK}/prefix/include/varnholt/${private})
    message(FATAL_ERROR "${private} is private and was installed: see cmake/VarnholtInstall.cmake")
  endif()
endforeach()

build(${EXAMPLE} ${WORK}/example)
run(${WORK}/example/minimal_host)
expect("^found [a-z, ()]+ after [0-9]+ candidates\n$")

build(${CONSUMER} ${WORK}/consumer -D WANTED_VERSION=${VERSION} -D EMBEDDED_HOST=${EMBEDDED_HOST}
  -D ALL_HEADERS=${WORK}/all_headers.cpp)
run(${WORK}/consumer/consumer ${WORK}/consumer)
if(EMBEDDED_HOST)
  expect("^version ${VERSION}\nrun 1: 4 candidates, ended by the limit of generations\n$")
else()
  expect("^version ${VERSION}\n$")
endif()
