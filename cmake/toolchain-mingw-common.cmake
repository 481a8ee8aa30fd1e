# Shared part of the two mingw-w64 toolchains; KOVRA_TRIPLET names the target.
set(CMAKE_C_COMPILER ${KOVRA_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KOVRA_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${KOVRA_TRIPLET}-windres)
set(CMAKE_OBJDUMP ${KOVRA_TRIPLET}-objdump)
set(CMAKE_FIND_ROOT_PATH /usr/${KOVRA_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)  # also packages installed elsewhere (CMAKE_PREFIX_PATH)

# Windows programs (the tests) run under wine, in a prefix inside the build tree; wine64
# hands 32-bit programs to the 32-bit loader of wine32. env(1) passes every variable on,
# also names with a hyphen that a shell would drop.
set(CMAKE_CROSSCOMPILING_EMULATOR
    "/usr/bin/env;WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix;WINEDEBUG=-all;/usr/lib/wine/wine64")
