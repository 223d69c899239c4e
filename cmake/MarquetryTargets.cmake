# Settings every Marquetry target carries, on one INTERFACE target so that no
# global flag is edited.
add_library(marquetry_options INTERFACE)
add_library(marquetry::options ALIAS marquetry_options)

target_compile_features(marquetry_options INTERFACE cxx_std_20)

if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  # Results must be bit-identical across compilers and processors: no fused
  # multiply-add contraction, no fast-math, no host-specific instruction set.
  target_compile_options(marquetry_options INTERFACE
    -ffp-contract=off
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnon-virtual-dtor
    $<$<BOOL:${MARQUETRY_WARNINGS_AS_ERRORS}>:-Werror>)
  if(MARQUETRY_SANITIZE)
    target_compile_options(marquetry_options INTERFACE
      -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(marquetry_options INTERFACE -fsanitize=address,undefined)
  endif()
  if(MARQUETRY_BUILD_FUZZERS)
    # Coverage feedback for libFuzzer in every engine library; only the fuzz
    # executables link the fuzzer's own main (fuzz/CMakeLists.txt).
    target_compile_options(marquetry_options INTERFACE
      -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(marquetry_options INTERFACE -fsanitize=address,undefined)
  endif()
elseif(MSVC)
  target_compile_options(marquetry_options INTERFACE
    /W4 /fp:precise /fp:contract- $<$<BOOL:${MARQUETRY_WARNINGS_AS_ERRORS}>:/WX>)
endif()

# marquetry_add_library(NAME subsystem SOURCES ... DEPENDS ...)
# One static library per subsystem, aliased as marquetry::NAME, headers
# included as "NAME/Header.hpp" from src/.
function(marquetry_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(marquetry_${name} STATIC ${ARG_SOURCES})
  add_library(marquetry::${name} ALIAS marquetry_${name})
  target_include_directories(marquetry_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(marquetry_${name} PUBLIC marquetry::options ${ARG_DEPENDS})
endfunction()

# marquetry_add_test(NAME SOURCES ... DEPENDS ...)
# One GoogleTest program per library, each test case registered with ctest.
function(marquetry_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} marquetry::test_support GTest::gmock GTest::gtest_main)
  include(GoogleTest)
  # Names carry the cases' own labels; printed parameter values would make
  # them long and, for structs holding pointers, different on every run.
  # Files an export replaces go to the Trash: the build's own, never the
  # user's.
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 30 NO_PRETTY_VALUES
                       PROPERTIES ENVIRONMENT "XDG_DATA_HOME=${CMAKE_BINARY_DIR}/test-data-home")
endfunction()
