# Warnings are errors on every compiler we support.
function(tarlink_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2 -Wundef
    $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast -fno-exceptions -fno-rtti>)
endfunction()
