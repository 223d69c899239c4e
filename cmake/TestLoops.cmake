# Real drum breaks converted to WAV at build time, for tests and benchmarks.
# Targets that read them link marquetry::test_loops, which supplies the
# folder as MARQUETRY_TEST_LOOPS_DIR and builds the files first.
find_program(MARQUETRY_SOX sox)
if(NOT MARQUETRY_SOX)
  message(FATAL_ERROR "sox is needed to prepare the test loops: run scripts/install-deps")
endif()
find_program(MARQUETRY_SNDFILE_CONVERT sndfile-convert)
if(NOT MARQUETRY_SNDFILE_CONVERT)
  message(FATAL_ERROR "sndfile-convert is needed to prepare the test loops: run scripts/install-deps")
endif()

set(MARQUETRY_TEST_LOOPS_DIR ${PROJECT_BINARY_DIR}/test-loops)
set(_loops amen_s16 amen_s24 amen_s32 amen_f32 amen_u8 amen_ulaw_s16 amen_mono_s16 breakbeat_s16 hits_mono_s16
           amen_10s_s16 amen_full_s16 kick_mono_s16 snare_mono_s16 hat_mono_s16 tom_mono_s16
           bass_mono_s16 hiss_mono_s16)
list(TRANSFORM _loops PREPEND ${MARQUETRY_TEST_LOOPS_DIR}/)
list(TRANSFORM _loops APPEND .wav)
# The same break in other formats, for import.
set(_import_sources amen_s16.flac amen_s24.flac amen_s16.aiff amen_s8.aiff amen_s24_extensible.wav
                    amen_s32_extensible.wav amen_f32.aifc amen.ogg amen_s24.rf64 amen_f64.wav amen_ulaw.wav
                    amen.mp3 amen_48k.opus)
list(TRANSFORM _import_sources PREPEND ${MARQUETRY_TEST_LOOPS_DIR}/import/)
add_custom_command(
  OUTPUT ${_loops} ${_import_sources}
  COMMAND ${PROJECT_SOURCE_DIR}/scripts/make-test-loops ${MARQUETRY_TEST_LOOPS_DIR}
  DEPENDS ${PROJECT_SOURCE_DIR}/scripts/make-test-loops
  COMMENT "Converting drum breaks for the tests")
add_custom_target(marquetry_test_loop_files DEPENDS ${_loops} ${_import_sources})

add_library(marquetry_test_loops INTERFACE)
add_library(marquetry::test_loops ALIAS marquetry_test_loops)
target_compile_definitions(marquetry_test_loops INTERFACE
  MARQUETRY_TEST_LOOPS_DIR="${MARQUETRY_TEST_LOOPS_DIR}")
add_dependencies(marquetry_test_loops marquetry_test_loop_files)
