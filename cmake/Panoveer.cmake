# What every target of the project shares, and the three ways to declare one.

include(GoogleTest)
find_package(PkgConfig REQUIRED)
find_package(GTest REQUIRED)

add_library(panoveer_settings INTERFACE)
target_compile_features(panoveer_settings INTERFACE cxx_std_23)
target_include_directories(panoveer_settings INTERFACE "${CMAKE_SOURCE_DIR}/Sources")
target_compile_options(panoveer_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wimplicit-fallthrough
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
  -Wno-missing-field-initializers # designated initialisers name what differs from the defaults
  $<$<BOOL:${PANOVEER_WARNINGS_AS_ERRORS}>:-Werror>)
if(PANOVEER_SANITIZERS)
  target_compile_options(panoveer_settings INTERFACE "-fsanitize=${PANOVEER_SANITIZERS}" -fno-sanitize-recover=all)
  target_link_options(panoveer_settings INTERFACE "-fsanitize=${PANOVEER_SANITIZERS}")
endif()

# SIMD kernels: one variant for each step that matters; those between and vectors of unknown length are left out.
pkg_check_modules(HIGHWAY REQUIRED IMPORTED_TARGET libhwy)
add_library(panoveer_simd INTERFACE)
target_link_libraries(panoveer_simd INTERFACE PkgConfig::HIGHWAY)
target_compile_definitions(panoveer_simd INTERFACE
  "HWY_DISABLED_TARGETS=(HWY_SSSE3|HWY_AVX3_SPR|HWY_SVE|HWY_SVE2|HWY_SVE_256|HWY_SVE2_128|HWY_RVV)")

set(CMAKE_CXX_EXTENSIONS OFF)
# No source uses C++ modules. The flags of the scan for them would keep ccache and clang-tidy from working.
set(CMAKE_CXX_SCAN_FOR_MODULES OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

# Programs find their resources beside themselves, in the build tree as after installation.
file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/share/panoveer")
file(CREATE_LINK "${CMAKE_SOURCE_DIR}/Sources/Panoveer/Resources" "${CMAKE_BINARY_DIR}/share/panoveer/Resources" SYMBOLIC)

# panoveer_library(NAME SOURCES … [PUBLIC …] [PRIVATE …])
# One layer of the program. PUBLIC holds the targets whose types appear in its headers.
function(panoveer_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC panoveer_settings ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
endfunction()

# panoveer_test(NAME SOURCES … LINKS … [LABELS …])
# One test program. LABELS are unit, media, gpu, corpus: what a test needs beyond the code itself.
function(panoveer_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS;LABELS" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/Tests")
  target_link_libraries(${name} PRIVATE panoveer_settings ${arg_LINKS} GTest::gmock GTest::gtest_main)
  if(NOT arg_LABELS)
    set(arg_LABELS unit)
  endif()
  string(REPLACE ";" "\\;" labels "${arg_LABELS}") # or the second label is taken for a property
  gtest_discover_tests(${name}
    WORKING_DIRECTORY "${CMAKE_SOURCE_DIR}"
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS "${labels}" TIMEOUT 600)
endfunction()
