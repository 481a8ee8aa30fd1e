// Import/export decoration of the library's interface.
#pragma once

#if defined(KOVRA_BUILDING_DLL)
#define KOVRA_API __declspec(dllexport)
#elif defined(KOVRA_DELAY_LOADED)
// A program that loads the library on its first call (the kovra tool) calls through the
// thunks of the delay-import library: GNU ld for i686 drops those thunks for calls that
// were declared dllimport, and such a call would jump to address 0.
#define KOVRA_API
#else
#define KOVRA_API __declspec(dllimport)
#endif

// The calling convention of the C interface, the same for every compiler and both
// targets: the caller removes the arguments (so Printf can take a variable list), and
// the 32-bit DLL exports the functions under their plain names.
#define KOVRA_CALL __cdecl

// Lets the compiler check the arguments of Printf against its format.
#if defined(__MINGW_PRINTF_FORMAT)
#define KOVRA_PRINTF_FORMAT(formatIndex, firstArgument) \
    __attribute__((format(__MINGW_PRINTF_FORMAT, formatIndex, firstArgument)))
#elif defined(__GNUC__) || defined(__clang__)
#define KOVRA_PRINTF_FORMAT(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define KOVRA_PRINTF_FORMAT(formatIndex, firstArgument)
#endif

// The same for a function that formats as Microsoft's C run-time does (the C interface's Printf).
#if defined(__MINGW32__) && !defined(__clang__)
#define KOVRA_MS_PRINTF_FORMAT(formatIndex, firstArgument) \
    __attribute__((format(ms_printf, formatIndex, firstArgument)))
#else
#define KOVRA_MS_PRINTF_FORMAT(formatIndex, firstArgument) KOVRA_PRINTF_FORMAT(formatIndex, firstArgument)
#endif
