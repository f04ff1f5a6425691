# Warnings are errors on every compiler we support.
function(tarlink_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -fno-exceptions -fno-rtti>)
endfunction()

# A C program of ours: C99, warnings as errors.  Under the sanitizers it links with the C++
# driver, since our libraries are C++ inside and UBSan's C++ half must come along.
function(tarlink_c_program target)
  target_compile_options(${target} PRIVATE -std=c99 -Wall -Wextra -Wpedantic -Werror)
  set_target_properties(${target} PROPERTIES C_EXTENSIONS OFF)
  if(TARLINK_SANITIZE)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  endif()
endfunction()
