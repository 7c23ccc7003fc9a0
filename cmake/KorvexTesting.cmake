# Test helpers shared by every test folder.
#
# korvex_add_gtest(<target> SOURCES ... LIBS ... [GUI])
#   Builds a GoogleTest executable and registers its tests with CTest. Every
#   test runs with HOME, TMPDIR and the all-users directory pointed at a
#   scratch folder in the build tree, so no test can touch the machine's real
#   /etc or home directory, and with the simulated vendor module first on the
#   loader path.
find_package(GTest REQUIRED)
include(GoogleTest)

set(KORVEX_TEST_SCRATCH ${CMAKE_BINARY_DIR}/test-scratch)
file(MAKE_DIRECTORY ${KORVEX_TEST_SCRATCH}/home ${KORVEX_TEST_SCRATCH}/etc ${KORVEX_TEST_SCRATCH}/tmp)

set(KORVEX_TEST_ENV
  "HOME=${KORVEX_TEST_SCRATCH}/home"
  "TMPDIR=${KORVEX_TEST_SCRATCH}/tmp/"
  "KORVEX_ALLUSERS_DIR=${KORVEX_TEST_SCRATCH}/etc/"
  "VESSA_SIM_STATE_DIR=${KORVEX_TEST_SCRATCH}/sim-state"
  "LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/sim"
  "KORVEX_SOURCE_DIR=${CMAKE_SOURCE_DIR}"
  "KORVEX_BINARY_DIR=${CMAKE_BINARY_DIR}"
  "LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
  "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
)

# The module is instrumented in a sanitizer build while pkcs11-tool is not;
# a test that runs the tool on it preloads the sanitizer runtimes, named to
# the test as VSIM_SANITIZER_PRELOAD.
function(korvex_sanitizer_preload target)
  if(KORVEX_SANITIZE)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so
                    OUTPUT_VARIABLE asan_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libubsan.so
                    OUTPUT_VARIABLE ubsan_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
    target_compile_definitions(${target} PRIVATE VSIM_SANITIZER_PRELOAD="${asan_runtime}:${ubsan_runtime}")
  elseif(KORVEX_TSAN)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libtsan.so
                    OUTPUT_VARIABLE tsan_runtime OUTPUT_STRIP_TRAILING_WHITESPACE)
    target_compile_definitions(${target} PRIVATE VSIM_SANITIZER_PRELOAD="${tsan_runtime}")
  endif()
endfunction()

function(korvex_add_gtest target)
  cmake_parse_arguments(ARG "GUI" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${target} ${ARG_SOURCES})
  korvex_layer_headers(${target} tests)
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock Threads::Threads)
  if(NOT ARG_GUI)
    target_link_libraries(${target} PRIVATE GTest::gtest_main)
  endif()
  # gtest_discover_tests (PRE_TEST, CMake 3.25) keeps only the first entry of
  # an ENVIRONMENT list, so the environment reaches discovery and every test
  # through env(1) as the test executor instead.
  set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "env;${KORVEX_TEST_ENV}")
  # GUI tests share one X display, so they never run side by side.
  set(props TIMEOUT 300 LABELS unit)
  if(ARG_GUI)
    set(props TIMEOUT 300 LABELS gui RESOURCE_LOCK x-display)
  endif()
  gtest_discover_tests(${target}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${props})
endfunction()
