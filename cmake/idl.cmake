# The record codecs.  idlgen, a host tool built first, reads the schema under
# lib/libtarlink/idl/schema/ and writes, into the build tree only, the public records header
# (tarlink_records.h, included by tarlink.h), the descriptor tables with the exported
# tlv_*/idr_* functions, and the list of those names for the linker version script.  A schema
# error stops the build with file:line.
set(TARLINK_GEN_DIR ${PROJECT_BINARY_DIR}/generated CACHE INTERNAL "generated codec sources")
set(TARLINK_SCHEMA_DIR ${PROJECT_SOURCE_DIR}/lib/libtarlink/idl/schema)
set(TARLINK_SCHEMA_FILES
  ${TARLINK_SCHEMA_DIR}/envelope.schema
  ${TARLINK_SCHEMA_DIR}/route.schema
  ${TARLINK_SCHEMA_DIR}/address.schema
  ${TARLINK_SCHEMA_DIR}/acc_cntl.schema
  ${TARLINK_SCHEMA_DIR}/interface.schema
  ${TARLINK_SCHEMA_DIR}/gencfg.schema
  ${TARLINK_SCHEMA_DIR}/firewall.schema
  ${TARLINK_SCHEMA_DIR}/attachments.schema
  ${TARLINK_SCHEMA_DIR}/blobs.schema
  ${TARLINK_SCHEMA_DIR}/interface_options.schema
  ${TARLINK_SCHEMA_DIR}/routing.schema
  ${TARLINK_SCHEMA_DIR}/bridging.schema
  ${TARLINK_SCHEMA_DIR}/analytics.schema
  ${TARLINK_SCHEMA_DIR}/daemons.schema
  ${TARLINK_SCHEMA_DIR}/subsystems.schema
  ${TARLINK_SCHEMA_DIR}/misc.schema
  CACHE INTERNAL "the record schema")

if(NOT TARGET idlgen)
  add_executable(idlgen
    ${PROJECT_SOURCE_DIR}/tools/idlgen/main.cc
    ${PROJECT_SOURCE_DIR}/tools/idlgen/parse.cc
    ${PROJECT_SOURCE_DIR}/tools/idlgen/emit.cc)
  tarlink_warnings(idlgen)
  # A host tool: in the 32-bit build it stays a native program (the machine that builds may not
  # run 32-bit code).
  if(CMAKE_CXX_FLAGS MATCHES "-m32" AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    target_compile_options(idlgen PRIVATE -m64)
    target_link_options(idlgen PRIVATE -m64)
  endif()
endif()

# tarlink_idlgen(<header> <source> <guard> SCHEMA <files...> [IMPORT <files...>] [EXPORT <macro>]
#                [EXPORTS <list>] [INCLUDE <headers...>] [PARTS <n>] [CORE])
# Runs idlgen at build time; outputs go to TARLINK_GEN_DIR.  EXPORTS names the file that gets
# the list of symbols the header declares.  PARTS splits the source into n files that compile in
# parallel; TARLINK_IDLGEN_SOURCES (set in the caller's scope) lists them.
function(tarlink_idlgen header source guard)
  cmake_parse_arguments(ARG "CORE" "EXPORT;EXPORTS;PARTS" "SCHEMA;IMPORT;INCLUDE" ${ARGN})
  if(NOT ARG_PARTS)
    set(ARG_PARTS 1)
  endif()
  set(args --header ${TARLINK_GEN_DIR}/${header} --source ${TARLINK_GEN_DIR}/${source} --guard ${guard}
    --parts ${ARG_PARTS})
  set(sources ${TARLINK_GEN_DIR}/${source})
  string(REGEX REPLACE "\\.cc$" "" stem ${source})
  if(ARG_PARTS GREATER 1)
    math(EXPR last "${ARG_PARTS} - 1")
    foreach(k RANGE 1 ${last})
      list(APPEND sources ${TARLINK_GEN_DIR}/${stem}_${k}.cc)
    endforeach()
  endif()
  set(TARLINK_IDLGEN_SOURCES ${sources} PARENT_SCOPE)
  set(outputs ${TARLINK_GEN_DIR}/${header} ${sources})
  if(ARG_CORE)
    list(APPEND args --core)
  endif()
  if(ARG_EXPORT)
    list(APPEND args --export ${ARG_EXPORT})
  endif()
  if(ARG_EXPORTS)
    list(APPEND args --exports ${TARLINK_GEN_DIR}/${ARG_EXPORTS})
    list(APPEND outputs ${TARLINK_GEN_DIR}/${ARG_EXPORTS})
  endif()
  foreach(inc IN LISTS ARG_INCLUDE)
    list(APPEND args --include ${inc})
  endforeach()
  foreach(imp IN LISTS ARG_IMPORT)
    list(APPEND args --import ${imp})
  endforeach()
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${TARLINK_GEN_DIR}
    COMMAND idlgen ${args} ${ARG_SCHEMA}
    DEPENDS idlgen ${ARG_SCHEMA} ${ARG_IMPORT}
    COMMENT "idlgen: ${header}, ${source}"
    VERBATIM)
endfunction()

# Four parts: the compiled codecs of some 400 composite records are most of the library's
# compile time, and in one file they would be the last to finish on every build.
tarlink_idlgen(tarlink_records.h tarlink_tables.cc TARLINK_RECORDS_H
  SCHEMA ${TARLINK_SCHEMA_FILES} EXPORT TLK_EXPORT EXPORTS tarlink_records.exports CORE PARTS 4)
set(TARLINK_TABLES_SOURCES ${TARLINK_IDLGEN_SOURCES} CACHE INTERNAL "the generated descriptor sources")
# The codec names that the library exports, one a line (see lib/libtarlink/tarlink.exports).
set(TARLINK_RECORDS_EXPORTS ${TARLINK_GEN_DIR}/tarlink_records.exports)
add_custom_target(tarlink_records DEPENDS ${TARLINK_GEN_DIR}/tarlink_records.h)

set(TARLINK_IDL_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/../lib/libtarlink/idl/tlv_engine.cc
  ${CMAKE_CURRENT_LIST_DIR}/../lib/libtarlink/idl/idr_engine.cc
  ${CMAKE_CURRENT_LIST_DIR}/../lib/libtarlink/idl/af_map.cc
  ${CMAKE_CURRENT_LIST_DIR}/../lib/libtarlink/idl/sockaddr_idl.cc
  ${TARLINK_TABLES_SOURCES})

# tarlink.h includes the generated records header: whatever compiles against it needs the
# generated directory on its include path and must wait for idlgen.  The library's targets link
# this PUBLIC, so every target that links the library gets both through its link.
add_library(tarlink_records_headers INTERFACE)
target_include_directories(tarlink_records_headers INTERFACE $<BUILD_INTERFACE:${TARLINK_GEN_DIR}>)
add_dependencies(tarlink_records_headers tarlink_records)

# The test-only records (tests/idl/schema/test.schema) and the random-record helpers, for the
# codec tests, the fuzz target and the codec benchmark: defined once, by whichever comes first.
function(tarlink_idl_test_records)
  if(TARGET idl_test_records)
    return()
  endif()
  tarlink_idlgen(tarlink_test_records.h tarlink_test_tables.cc TARLINK_TEST_RECORDS_H
    SCHEMA ${PROJECT_SOURCE_DIR}/tests/idl/schema/test.schema
    IMPORT ${TARLINK_SCHEMA_FILES}
    INCLUDE tarlink.h)
  add_library(idl_test_records STATIC
    ${TARLINK_GEN_DIR}/tarlink_test_tables.cc
    ${PROJECT_SOURCE_DIR}/tests/idl/codec_support.cc)
  target_include_directories(idl_test_records PUBLIC ${TARLINK_GEN_DIR} ${PROJECT_SOURCE_DIR}/tests/idl)
  target_link_libraries(idl_test_records PUBLIC tarlink_static)
  tarlink_warnings(idl_test_records)
endfunction()
