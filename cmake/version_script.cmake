# Writes the linker version script of libtarlink (cmake -P):
#
#   -DHAND=<file>       the hand-written list of exported names (lib/libtarlink/tarlink.exports)
#   -DGENERATED=<file>  the codec names that idlgen declares in the records header
#   -DNODE=<name>       the version node
#   -DOUT=<file>        the script to write
#
# A list holds one name a line; blank lines and lines starting with '#' are comments.  Only
# plain C identifiers are accepted, so no pattern can export more than is named.  The hand list
# must be sorted, and no name may appear twice across both lists.
cmake_minimum_required(VERSION 3.25)
foreach(var HAND GENERATED NODE OUT)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "version_script.cmake: -D${var}=... is required")
  endif()
endforeach()

function(read_names file out_var)
  file(STRINGS ${file} lines)
  set(names)
  set(line_no 0)
  foreach(line IN LISTS lines)
    math(EXPR line_no "${line_no} + 1")
    string(STRIP "${line}" line)
    if(line STREQUAL "" OR line MATCHES "^#")
      continue()
    endif()
    if(NOT line MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
      message(FATAL_ERROR "${file}:${line_no}: '${line}' is not a symbol name")
    endif()
    list(APPEND names ${line})
  endforeach()
  set(${out_var} ${names} PARENT_SCOPE)
endfunction()

read_names(${HAND} hand)
read_names(${GENERATED} generated)

set(sorted ${hand})
list(SORT sorted)
if(NOT sorted STREQUAL hand)
  foreach(name IN LISTS hand)
    list(POP_FRONT sorted expected)
    if(NOT name STREQUAL expected)
      message(FATAL_ERROR "${HAND}: not sorted: '${name}' where '${expected}' belongs")
    endif()
  endforeach()
endif()

set(all ${hand} ${generated})
set(unique ${all})
list(REMOVE_DUPLICATES unique)
list(LENGTH all count_all)
list(LENGTH unique count_unique)
if(NOT count_all EQUAL count_unique)
  set(seen)
  foreach(name IN LISTS all)
    if(name IN_LIST seen)
      message(FATAL_ERROR "${name} is listed twice (${HAND}, ${GENERATED})")
    endif()
    list(APPEND seen ${name})
  endforeach()
endif()

list(SORT all)
string(JOIN ";\n    " body ${all})
file(WRITE ${OUT} "/* Generated from ${HAND} and ${GENERATED}; do not edit. */\n${NODE} {\n  global:\n    ${body};\n  local:\n    *;\n};\n")
