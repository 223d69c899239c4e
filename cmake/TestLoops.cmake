# Real drum breaks converted to WAV at build time, for tests and benchmarks.
# Targets that read them link marquetry::test_loops, which supplies the
# folder as MARQUETRY_TEST_LOOPS_DIR and builds the files first.
find_program(MARQUETRY_SOX sox)
if(NOT MARQUETRY_SOX)
  message(FATAL_ERROR "sox is needed to prepare the test loops: run scripts/install-deps")
endif()

set(MARQUETRY_TEST_LOOPS_DIR ${PROJECT_BINARY_DIR}/test-loops)
set(_loops amen_s16 amen_s24 amen_s32 amen_f32 amen_mono_s16 breakbeat_s16 hits_mono_s16 amen_10s_s16)
list(TRANSFORM _loops PREPEND ${MARQUETRY_TEST_LOOPS_DIR}/)
list(TRANSFORM _loops APPEND .wav)
add_custom_command(
  OUTPUT ${_loops}
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/make-test-loops ${MARQUETRY_TEST_LOOPS_DIR}
  DEPENDS ${PROJECT_SOURCE_DIR}/scripts/make-test-loops
  COMMENT "Converting drum breaks for the tests")
add_custom_target(marquetry_test_loop_files DEPENDS ${_loops})

add_library(marquetry_test_loops INTERFACE)
add_library(marquetry::test_loops ALIAS marquetry_test_loops)
target_compile_definitions(marquetry_test_loops INTERFACE
  MARQUETRY_TEST_LOOPS_DIR="${MARQUETRY_TEST_LOOPS_DIR}")
add_dependencies(marquetry_test_loops marquetry_test_loop_files)
