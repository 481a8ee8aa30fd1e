# The export table of kovra.dll against the two definition files it is linked with:
#   C_DEF   the C interface (capi.h, diag.h) under plain names, as the linker exports them;
#   MS_DEF  the members of CKovra and CKovraFind under Microsoft's names for this target, each
#           an alias of the entry point that serves it, generated from the declaration
#           src/msabi/Classes.h by clang in Microsoft mode (see microsoft_names below).
# Fails when the DLL exports a plain name that C_DEF lacks or lacks one that it lists, when a
# name of MS_DEF isn't exported, and, with the LLVM tools given, when MS_DEF isn't what the
# declaration gives now. With UPDATE set it writes both files instead. With DLLTOOL given it
# makes IMPORT_LIBRARY (kovra.lib) for Microsoft's linker from both.
#
# cmake -DDLL= -DOBJDUMP= -DCXXFILT= -DARCH=i686|x86_64 -DC_DEF= -DMS_DEF= -DWORK_DIR=
#       [-DCLANG= -DREADOBJ= -DUNDNAME= -DDECLARATION=] [-DDLLTOOL= -DIMPORT_LIBRARY=] [-DUPDATE=ON]
#       -P CheckExports.cmake

cmake_minimum_required(VERSION 3.20)

# demangled(OUTPUT NAMES FIRST STEP COMMAND...): the demangled form of each name, in order, by a
# tool that reads one name a line and answers each with STEP lines, the form at FIRST of them
# (llvm-undname: the name, its form and a blank line; c++filt: the form).
function(demangled output names first step)
  list(JOIN names "\n" text)
  file(WRITE ${WORK_DIR}/names.txt "${text}\n")
  execute_process(COMMAND ${ARGN} INPUT_FILE ${WORK_DIR}/names.txt OUTPUT_VARIABLE answer COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" lines "${answer}")
  set(forms "")
  set(index ${first})
  foreach(name IN LISTS names)
    list(GET lines ${index} form)
    list(APPEND forms "${form}")
    math(EXPR index "${index} + ${step}")
  endforeach()
  set(${output} "${forms}" PARENT_SCOPE)
endfunction()

# The names that a definition file lists (lines after EXPORTS, comments skipped).
function(definition_names output file)
  file(STRINGS ${file} lines REGEX "^  [^ ;]")
  list(TRANSFORM lines REPLACE "^  ([^ =]+).*$" "\\1")
  set(${output} "${lines}" PARENT_SCOPE)
endfunction()

# A member's name and parameters in one spelling for both demanglers, as the name of a
# variable: no "struct" or "class", no blanks, "(void)" as "()", and with WITHOUT_CONST no const.
function(member_key output form without_const)
  string(REGEX REPLACE "(struct|class) " "" form "${form}")
  if(without_const)
    string(REGEX REPLACE "(^|[^A-Za-z0-9_])const([^A-Za-z0-9_]|$)" "\\1\\2" form "${form}")
  endif()
  string(REPLACE " " "" form "${form}")
  string(REPLACE "(void)" "()" form "${form}")
  string(MD5 key "${without_const}${form}")
  set(${output} "gcc_${key}" PARENT_SCOPE)
endfunction()

# The entry point that serves a decorated name, given its demangled form: the library's own
# where Microsoft's ABI differs from GCC's (KovraMs_<class>_<what>, src/msabi/EntryPoints.cpp),
# else the GCC member of the same name whose parameters are the same, or differ only in const.
# Several GCC symbols of one form are the variants of a destructor: the complete-object one.
function(entry_point output form)
  if(form MATCHES "^(const )?([A-Za-z_]+)::`vftable'$")
    set(entry "KovraMs_${CMAKE_MATCH_2}_Table DATA")
  elseif(form MATCHES "^([A-Za-z_]+)::`default ctor closure'")
    set(entry "KovraMs_${CMAKE_MATCH_1}_ConstructDefault")
  elseif(form MATCHES "^([A-Za-z_]+)::([A-Za-z_]+)\\(class ([A-Za-z_]+) const &\\)$"
         AND CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_2 AND CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_3)
    set(entry "KovraMs_${CMAKE_MATCH_1}_CopyConstruct")
  elseif(form MATCHES "^([A-Za-z_]+)::([A-Za-z_]+)\\(" AND CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_2)
    set(entry "KovraMs_${CMAKE_MATCH_1}_Construct")
  elseif(form MATCHES "^([A-Za-z_]+)::operator=\\(class ([A-Za-z_]+) const &\\)$" AND CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_2)
    set(entry "KovraMs_${CMAKE_MATCH_1}_CopyAssign")
  elseif(form MATCHES "^([A-Za-z_]+)::([A-Za-z_]+)\\(.*\\.\\.\\.\\)$")
    set(entry "KovraMs_${CMAKE_MATCH_1}_${CMAKE_MATCH_2}")  # reads its variable list as Microsoft's run-time
  else()
    foreach(without_const IN ITEMS OFF ON)
      member_key(key "${form}" ${without_const})
      set(found ${${key}})
      list(LENGTH found count)
      if(count GREATER 1)
        list(FILTER found INCLUDE REGEX "D1Ev$")
      endif()
      if(found)
        break()
      endif()
    endforeach()
    list(LENGTH found count)
    if(NOT count EQUAL 1)
      message(FATAL_ERROR "No GCC member, or more than one, serves ${form}: ${found}")
    endif()
    set(entry ${found})
  endif()
  set(${output} "${entry}" PARENT_SCOPE)
endfunction()

# The definition file of Microsoft's names: clang compiles the declaration with its classes
# dllexport and every member defined, and its export directives are the names.
function(microsoft_names output)
  if(ARCH STREQUAL "i686")
    set(triple i686-pc-windows-msvc)
  else()
    set(triple x86_64-pc-windows-msvc)
  endif()
  execute_process(COMMAND ${CLANG} --target=${triple} -x c++ -ffreestanding -Wno-return-type
                          "-DKOVRA_MS_CLASS=__declspec(dllexport)" "-DKOVRA_MS_MEMBER={}" -c ${DECLARATION}
                          -o ${WORK_DIR}/declaration.obj COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${READOBJ} --coff-directives ${WORK_DIR}/declaration.obj OUTPUT_VARIABLE directives
                  COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "/EXPORT:\"?[^\", ]+" names "${directives}")
  list(TRANSFORM names REPLACE "^/EXPORT:\"?" "")
  demangled(forms "${names}" 1 3 ${UNDNAME} --no-access-specifier --no-calling-convention --no-member-type
            --no-return-type --no-variable-type)

  # GCC's members, by their forms with and without const.
  set(gcc_names ${exports})
  list(FILTER gcc_names INCLUDE REGEX "^_Z")
  demangled(gcc_forms "${gcc_names}" 0 1 ${CXXFILT} -n)
  foreach(name form IN ZIP_LISTS gcc_names gcc_forms)
    foreach(without_const IN ITEMS OFF ON)
      member_key(key "${form}" ${without_const})
      list(APPEND ${key} ${name})
    endforeach()
  endforeach()

  string(CONCAT text "; CKovra and CKovraFind under the names that Microsoft's compiler gives their declaration\n"
                     "; src/msabi/Classes.h for ${ARCH}, each an alias of the entry point that serves it.\n"
                     "; Generated by cmake/CheckExports.cmake: cmake --build build/${ARCH} --target\n"
                     "; kovra_export_definitions writes it again.\nEXPORTS\n")
  foreach(name form IN ZIP_LISTS names forms)
    entry_point(entry "${form}")
    string(APPEND text "  ; ${form}\n  ${name}=${entry}\n")
  endforeach()
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

# update_or_compare(FILE TEXT): writes FILE with UPDATE, else fails when it differs from TEXT.
function(update_or_compare file text)
  if(UPDATE)
    file(WRITE ${file} "${text}")
    message(STATUS "Wrote ${file}")
    return()
  endif()
  file(READ ${file} checked_in)
  if(NOT checked_in STREQUAL text)
    file(WRITE ${WORK_DIR}/expected.def "${text}")
    message(FATAL_ERROR "${file} is out of date (it should read as ${WORK_DIR}/expected.def): "
                        "cmake --build build/${ARCH} --target kovra_export_definitions")
  endif()
endfunction()

execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump COMMAND_ERROR_IS_FATAL ANY)
string(FIND "${dump}" "[Ordinal/Name Pointer] Table" names_start)
string(SUBSTRING "${dump}" ${names_start} -1 dump)
string(FIND "${dump}" "\n\n" names_end)  # a blank line ends the table
string(SUBSTRING "${dump}" 0 ${names_end} dump)
string(REGEX MATCHALL "\\[ *[0-9]+\\] [^\n]+" exports "${dump}")
list(TRANSFORM exports REPLACE "^\\[ *[0-9]+\\] " "")
get_filename_component(dll_name ${DLL} NAME)

# The C interface: every plain name, as the linker exports it.
set(plain ${exports})
list(FILTER plain EXCLUDE REGEX "^(_Z|\\?)")
list(JOIN plain "\n  " text)
string(CONCAT text "; The C interface of kovra.dll (capi.h) and its inspection entry points (diag.h) under\n"
                   "; their plain names. Checked against what the linker exports; cmake --build\n"
                   "; build/<target> --target kovra_export_definitions writes it again.\nEXPORTS\n  ${text}\n")
update_or_compare(${C_DEF} "${text}")

if(CLANG AND READOBJ AND UNDNAME)
  microsoft_names(text)
  update_or_compare(${MS_DEF} "${text}")
endif()
definition_names(decorated ${MS_DEF})
set(missing ${decorated})
list(REMOVE_ITEM missing ${exports})
if(missing AND NOT UPDATE)
  list(JOIN missing "\n  " text)
  message(FATAL_ERROR "${dll_name} does not export:\n  ${text}")
endif()

# kovra.lib: the C functions and Microsoft's names without their aliases, the tables as data.
if(DLLTOOL AND NOT UPDATE)
  file(STRINGS ${MS_DEF} members REGEX "^  [^ ;]")
  list(TRANSFORM members REPLACE "=[^ ]+" "")
  list(JOIN plain "\n  " text)
  list(JOIN members "\n" members)
  file(WRITE ${WORK_DIR}/kovra.def "LIBRARY ${dll_name}\nEXPORTS\n  ${text}\n${members}\n")
  if(ARCH STREQUAL "i686")
    set(machine i386)
  else()
    set(machine i386:x86-64)
  endif()
  execute_process(COMMAND ${DLLTOOL} -m ${machine} -d ${WORK_DIR}/kovra.def -l ${IMPORT_LIBRARY}
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
