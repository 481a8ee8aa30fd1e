# Makes LIBRARY, an import library of kovra.dll that holds just the names of Microsoft's
# compiler that OBJECT imports (its __imp_? symbols), as a program built against another
# kovra.dll brings them.
# cmake -DNM= -DDLLTOOL= -DMACHINE= -DOBJECT= -DLIBRARY= -P ImportLibrary.cmake
execute_process(COMMAND ${NM} --undefined-only --format=just-symbols ${OBJECT} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "__imp_\\?[^\n]+" names "${symbols}")
list(TRANSFORM names REPLACE "^__imp_" "")
list(JOIN names "\n  " text)
file(WRITE ${LIBRARY}.def "LIBRARY kovra.dll\nEXPORTS\n  ${text}\n")
execute_process(COMMAND ${DLLTOOL} -m ${MACHINE} -d ${LIBRARY}.def -l ${LIBRARY} COMMAND_ERROR_IS_FATAL ANY)
