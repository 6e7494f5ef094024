# Settings that every target of the project shares. A target opts in with varnholt_target(NAME).

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

add_library(varnholt_flags INTERFACE)
target_compile_options(varnholt_flags INTERFACE
  $<BUILD_INTERFACE:-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlapping copies in correct uses of std::string (its bug 105651).
  target_compile_options(varnholt_flags INTERFACE $<BUILD_INTERFACE:-Wno-restrict>)
endif()
if(VARNHOLT_SANITIZE)
  target_compile_options(varnholt_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  target_link_options(varnholt_flags INTERFACE -fsanitize=address,undefined)
endif()
if(VARNHOLT_COVERAGE)
  target_compile_options(varnholt_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(varnholt_flags INTERFACE --coverage)
endif()

# What the fuzz targets and the libraries under them link after varnholt_flags: the fuzzer is told
# which branches were taken, and the code runs fast enough to try many texts.
add_library(varnholt_fuzz_flags INTERFACE)
if(VARNHOLT_FUZZ)
  target_compile_options(varnholt_fuzz_flags INTERFACE
    $<BUILD_INTERFACE:-fsanitize=fuzzer-no-link -O1>)
endif()

# What tests link after varnholt_flags: the checks that cost most to compile are left to the code
# under test, which has them all.
add_library(varnholt_test_flags INTERFACE)
if(VARNHOLT_SANITIZE)
  target_compile_options(varnholt_test_flags INTERFACE
    -fno-sanitize=null,alignment,vptr,object-size)
endif()

# Hardening. What is linked keeps the objects' own marks only where the system's start files bear
# them too, so tests/hardening reads those from the objects.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fcf-protection VARNHOLT_HAS_CF_PROTECTION)
target_compile_options(varnholt_flags INTERFACE $<BUILD_INTERFACE:-fstack-protector-strong>)
if(VARNHOLT_HAS_CF_PROTECTION)
  target_compile_options(varnholt_flags INTERFACE $<BUILD_INTERFACE:-fcf-protection>)
endif()
# The checks of the C library need an optimising compiler, which programs of tests do without.
set(varnholt_fortified
  $<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:VARNHOLT_UNOPTIMISED>>>>)
target_compile_options(varnholt_flags INTERFACE
  $<BUILD_INTERFACE:$<${varnholt_fortified}:-U_FORTIFY_SOURCE>>
  $<BUILD_INTERFACE:$<${varnholt_fortified}:-D_FORTIFY_SOURCE=2>>)
target_link_options(varnholt_flags INTERFACE
  $<BUILD_INTERFACE:LINKER:-z,relro,-z,now,-z,noexecstack>)

function(varnholt_target name)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:varnholt_flags>)
  # Every include names its file from the top of the repository.
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
endfunction()
