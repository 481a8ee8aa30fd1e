# The LLVM tools that serve Microsoft's side: the build learns Microsoft's names of the
# classes' members from clang and makes kovra.lib, the import library for Microsoft's linker,
# with llvm-dlltool; the tests build Microsoft-mode programs with clang and lld-link. Debian
# 12's packages clang-16, lld-16 and llvm-16 carry them.

# kovra_require_llvm_tool(VARIABLE NAME PACKAGE): the program NAME-16 (or NAME) in VARIABLE.
function(kovra_require_llvm_tool variable name package)
  find_program(${variable} NAMES ${name}-16 ${name})
  if(NOT ${variable})
    message(FATAL_ERROR "${name}-16 is missing: install the Debian package ${package} (scripts/lib.sh does)")
  endif()
endfunction()

# kovra_find_llvm_tools(PREFIX KEY NAME...): for each pair, the program NAME-16 (or NAME) in
# PREFIX_KEY, which is false when the program is missing.
function(kovra_find_llvm_tools prefix)
  while(ARGN)
    list(POP_FRONT ARGN key name)
    find_program(${prefix}_${key} NAMES ${name}-16 ${name})
  endwhile()
endfunction()
