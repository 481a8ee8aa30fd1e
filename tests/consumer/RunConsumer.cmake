# Installs the kovra build KOVRA_BUILD_DIR into WORK_DIR/install, builds APP_SOURCE_DIR
# against it with the same toolchain, and runs the program under the emulator in a
# small installation of its own. Fails on any step, or when the output isn't the expected.
cmake_minimum_required(VERSION 3.20)

function(run_step description)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${description} failed (${result}):\n${output}")
  endif()
  set(step_output "${output}" PARENT_SCOPE)
endfunction()

# The path as the Windows program sees it: Linux's / is drive Z:.
function(wine_path out path)
  string(REPLACE "/" "\\" native "${path}")
  set(${out} "Z:${native}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/install)
set(app_build ${WORK_DIR}/build)
set(site ${WORK_DIR}/site)
file(REMOVE_RECURSE ${WORK_DIR})

run_step("Installing ${KOVRA_BUILD_DIR}" ${CMAKE_COMMAND} --install ${KOVRA_BUILD_DIR} --prefix ${prefix})
foreach(installed include/kovra/kovra.h include/kovra/capi.h lib/libkovra.dll.a lib/kovra.lib
        lib/cmake/kovra/kovraConfig.cmake bin/kovra.dll bin/tarnel31.dll bin/kovra.exe bin/kovramon.exe bin/handle.exe)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "The package lacks ${installed}")
  endif()
endforeach()

# The import library that the package gives a consumer whose compiler simulates another's
# (clang-cl says MSVC; GCC simulates none).
function(check_import_library name simulated library)
  run_step("Configuring a consumer for ${name}" ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/import-library
           -B ${WORK_DIR}/${name} "-DCMAKE_CXX_SIMULATE_ID=${simulated}" -Dkovra_DIR=${prefix}/lib/cmake/kovra)
  if(NOT step_output MATCHES "import library ${prefix}/lib/${library}\n")
    message(FATAL_ERROR "A consumer for ${name} doesn't get lib/${library}:\n${step_output}")
  endif()
endfunction()
check_import_library(Microsoft MSVC kovra.lib)
check_import_library(GCC "" libkovra.dll.a)

set(build_type_option)
if(BUILD_TYPE)
  set(build_type_option -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
endif()
# The toolchain confines package searches to its root path, which re-roots CMAKE_PREFIX_PATH:
# kovra_DIR names the package's directory itself.
run_step("Configuring the consumer" ${CMAKE_COMMAND} -S ${APP_SOURCE_DIR} -B ${app_build} -G ${GENERATOR}
         -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE} -DCMAKE_PREFIX_PATH=${prefix}
         -Dkovra_DIR=${prefix}/lib/cmake/kovra ${build_type_option})
run_step("Building the consumer" ${CMAKE_COMMAND} --build ${app_build})
file(COPY ${prefix}/bin/kovra.dll ${prefix}/bin/tarnel31.dll DESTINATION ${app_build})

# Its installation: a workstation below APP\DAT\ and a configuration without message boxes.
file(MAKE_DIRECTORY ${site}/APP/DAT/WS1)
file(WRITE ${site}/CONF/CKOVRA.INI "[DefaultSettings]\r\nOption=32\r\n[REPORTS]\r\nLocation=BASEDATA\r\n")
wine_path(workstation ${site}/APP/DAT/WS1)
wine_path(config ${site}/CONF)
wine_path(base ${site}/APP)
string(REPLACE "|" ";" emulator "${EMULATOR}")
run_step("Running the consumer" /usr/bin/env "TARNEL31_WKSTA=${workstation}" "KARVELO-CKOVRAHOME=${config}"
         ${emulator} ${app_build}/consumer.exe)

# The text mode wrote CR LF for the LF (23 bytes); the configuration's type stands behind the
# built-in ones.
string(CONCAT expected "real ${base}\\HELLO.TXT\n" "length 23\n" "text hello from a consumer\n"
       "types DFT:DEFAULT XWS:MODULE REPORTS:BASEDATA\n")
string(REPLACE "\r\n" "\n" actual "${step_output}")
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "The consumer printed\n${actual}\ninstead of\n${expected}")
endif()
message(STATUS "The consumer built against ${prefix} and printed what it should.")
