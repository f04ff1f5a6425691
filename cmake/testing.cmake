# Test registration: one ctest entry per test binary (or per shard of one), so that a test run
# starts a handful of processes rather than one per case.
include_guard(GLOBAL)

# tarlink_add_gtest(<target> PREFIX <name> [SHARDS <n>] [FRESH <Suite.Case>...])
#   Runs the GoogleTest binary <target> as <n> shards (GTEST_TOTAL_SHARDS), named <name>.shard<i>.
#   Cases listed under FRESH are left out of the shards and get an entry of their own, named
#   <name>.<Suite.Case>: they observe process-wide state as a new process has it (memory
#   accounting that, once on, stays on).
function(tarlink_add_gtest target)
  cmake_parse_arguments(ARG "" "PREFIX;SHARDS;TIMEOUT" "FRESH;ENVIRONMENT" ${ARGN})
  if(NOT ARG_SHARDS)
    set(ARG_SHARDS 1)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set(filter "")
  foreach(name IN LISTS ARG_FRESH)
    add_test(NAME ${ARG_PREFIX}.${name} COMMAND ${target} --gtest_filter=${name})
    set_tests_properties(${ARG_PREFIX}.${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
                         ENVIRONMENT "${ARG_ENVIRONMENT}")
  endforeach()
  if(ARG_FRESH)
    list(JOIN ARG_FRESH ":" excluded)
    set(filter "--gtest_filter=-${excluded}")
  endif()
  math(EXPR last "${ARG_SHARDS} - 1")
  foreach(i RANGE ${last})
    set(name ${ARG_PREFIX}.shard${i})
    add_test(NAME ${name} COMMAND ${target} --gtest_brief=1 ${filter})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT
      "GTEST_TOTAL_SHARDS=${ARG_SHARDS};GTEST_SHARD_INDEX=${i};${ARG_ENVIRONMENT}")
  endforeach()
endfunction()

# tarlink_precompile_gtest(<target> PUBLIC|PRIVATE [<header>...])
#   GoogleTest's header, and the library's umbrella headers where they are given, are most of what
#   a test file costs to compile: parse them once per binary.
#   With it precompiled, g++ 12 inlines std::string's copies further and then warns of bounds that
#   no run reaches (its -Warray-bounds and -Wstringop-overflow false positives on string
#   concatenation); those two stay off for test code.
function(tarlink_precompile_gtest target scope)
  target_precompile_headers(${target} ${scope} <gtest/gtest.h> ${ARGN})
  target_compile_options(${target} ${scope}
    $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds -Wno-stringop-overflow>)
endfunction()

# A 32-bit build's tests run natively where this host runs i386 code; qemu-i386 is the fallback,
# chosen only after a trial run of a 32-bit program fails.
function(tarlink_choose_test_emulator)
  if(NOT CMAKE_SIZEOF_VOID_P EQUAL 4 OR DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
    return()
  endif()
  set(probe ${CMAKE_BINARY_DIR}/CMakeFiles/run32_probe.c)
  file(WRITE ${probe} "int main(void) { return sizeof(void *) == 4 ? 0 : 1; }\n")
  try_run(run_result compile_result ${CMAKE_BINARY_DIR}/CMakeFiles/run32_probe ${probe})
  if(compile_result AND run_result EQUAL 0)
    message(STATUS "32-bit tests run natively")
    return()
  endif()
  find_program(TARLINK_QEMU_I386 qemu-i386)
  if(NOT TARLINK_QEMU_I386)
    message(FATAL_ERROR "this host runs no 32-bit code and has no qemu-i386 (apt-get install qemu-user)")
  endif()
  message(STATUS "32-bit tests run under ${TARLINK_QEMU_I386}")
  set(CMAKE_CROSSCOMPILING_EMULATOR ${TARLINK_QEMU_I386} PARENT_SCOPE)
endfunction()
