# Lays out a small installation in WORK_DIR and runs PROGRAM (a Microsoft-mode program beside
# kovra.dll) in it under the emulator; its exit code is the number of its checks that failed.
# cmake -DPROGRAM= -DWORK_DIR= -DEMULATOR= -P RunWalk.cmake
cmake_minimum_required(VERSION 3.20)

set(site ${WORK_DIR}/site)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${site}/APP/DAT/WS1)
string(REPLACE "/" "\\" native "${site}")
set(site_path "Z:${native}")  # Linux's / is drive Z:

# A type for each location that the programs use, a data area, and no message boxes.
set(configuration "[DefaultSettings]" "Option=32" "BaseDataPath=${site_path}\\DATA")
foreach(type IN ITEMS PROGRAM:BASE FORMS:MODULE CLIENTFORMS:MODULECLIENT LETTERS:USER SETTINGS:WKSTA DATA:BASEDATA)
  string(REPLACE ":" ";" parts "${type}")
  list(GET parts 0 name)
  list(GET parts 1 location)
  list(APPEND configuration "[${name}]" "Location=${location}")
endforeach()
list(JOIN configuration "\r\n" text)
file(WRITE ${site}/CONF/CKOVRA.INI "${text}\r\n")

string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND /usr/bin/env "TARNEL31_WKSTA=${site_path}\\APP\\DAT\\WS1"
                        "KARVELO-CKOVRAHOME=${site_path}\\CONF" ${emulator} ${PROGRAM}
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${result}:\n${output}${errors}")
endif()
