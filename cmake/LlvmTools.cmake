# The LLVM tools that serve Microsoft's side: llvm-dlltool makes kovra.lib, the import
# library for Microsoft's linker, and the tests build Microsoft-mode programs with clang
# and lld-link. Debian 12's packages clang-16, lld-16 and llvm-16 carry them.

# kovra_require_llvm_tool(VARIABLE NAME PACKAGE): the program NAME-16 (or NAME) in VARIABLE.
function(kovra_require_llvm_tool variable name package)
  find_program(${variable} NAMES ${name}-16 ${name})
  if(NOT ${variable})
    message(FATAL_ERROR "${name}-16 is missing: install the Debian package ${package} (scripts/lib.sh does)")
  endif()
endfunction()
