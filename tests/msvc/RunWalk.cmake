# Lays out a small installation in WORK_DIR, runs PROGRAM (a Microsoft-mode program beside
# kovra.dll) in it under the emulator, and compares what it prints with the file EXPECTED (in
# the source folder), in which SITE stands for the installation's directory and YYMMDD for the
# day of the backups. Without EXPECTED the program's own checks decide by its exit code.
cmake_minimum_required(VERSION 3.20)

set(site ${WORK_DIR}/site)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${site}/APP/DAT/WS1)
string(REPLACE "/" "\\" native "${site}")
set(site_path "Z:${native}")  # Linux's / is drive Z:

# A type for every location, a data and a read-only area, and no message boxes.
set(configuration "[DefaultSettings]" "Option=32" "BaseDataPath=${site_path}\\DATA"
    "BaseReadOnlyPath=${site_path}\\RO")
foreach(type IN ITEMS PROGRAM:BASE FORMS:MODULE ORDERS:CLIENT CLIENTFORMS:MODULECLIENT LETTERS:USER SETTINGS:WKSTA
                      SCRATCH:WKSTATMP DATA:BASEDATA MASTER:BASEREADONLY TEMPLATES:MODULEREADONLY)
  string(REPLACE ":" ";" parts "${type}")
  list(GET parts 0 name)
  list(GET parts 1 location)
  list(APPEND configuration "[${name}]" "Location=${location}")
endforeach()
list(JOIN configuration "\r\n" text)
file(WRITE ${site}/CONF/CKOVRA.INI "${text}\r\n")

string(REPLACE "|" ";" emulator "${EMULATOR}")
string(TIMESTAMP day_before "%y%m%d" UTC)
execute_process(COMMAND /usr/bin/env "TARNEL31_WKSTA=${site_path}\\APP\\DAT\\WS1"
                        "KARVELO-CKOVRAHOME=${site_path}\\CONF" ${emulator} ${PROGRAM}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
string(TIMESTAMP day_after "%y%m%d" UTC)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${result}:\n${output}${errors}")
elseif(NOT EXPECTED)
  return()
endif()

string(REPLACE "${site_path}" "SITE" actual "${output}")
foreach(day IN ITEMS ${day_before} ${day_after})
  string(REGEX REPLACE "${day}(0[12]\\.SAV)" "YYMMDD\\1" actual "${actual}")
endforeach()
file(READ ${CMAKE_CURRENT_LIST_DIR}/${EXPECTED} expected)
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "${PROGRAM} printed\n${actual}\ninstead of\n${expected}")
endif()
