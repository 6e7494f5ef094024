# Installs what is built into an empty folder, then builds and runs a small project that knows
# nothing but find_package(varnholt_genetic) and that folder. The folder is moved between the two,
# so that a path of the build that slipped into the package is noticed.

function(run)
  execute_process(COMMAND ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nfailed (${result}):\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK}/first ${WORK}/prefix ${WORK}/consumer)
run(${CMAKE_COMMAND} --install ${BUILT} --prefix ${WORK}/first --component development)
file(RENAME ${WORK}/first ${WORK}/prefix)

file(GLOB_RECURSE headers RELATIVE ${WORK}/prefix/include ${WORK}/prefix/include/*)
foreach(header IN LISTS headers)
  if(NOT header MATCHES "^(search_templates/genetic|hosts/embedded)/.*\\.hpp$")
    message(FATAL_ERROR "${header} has no business among the installed headers")
  endif()
endforeach()

run(${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK}/consumer -G ${GENERATOR}
  -D CMAKE_BUILD_TYPE=Release -D CMAKE_CXX_COMPILER=${COMPILER}
  -D CMAKE_PREFIX_PATH=${WORK}/prefix -D WANTED_VERSION=${VERSION}
  -D EMBEDDED_HOST=${EMBEDDED_HOST})
run(${CMAKE_COMMAND} --build ${WORK}/consumer)
run(${WORK}/consumer/consumer)
if(NOT output STREQUAL "TypeError: hello\n")
  message(FATAL_ERROR "the consumer printed: ${output}")
endif()
