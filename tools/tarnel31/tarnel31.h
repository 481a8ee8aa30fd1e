// tarnel31.dll: the environment library that tells a workstation where it lives.
// Exported by ordinal only: 2 answers the workstation directory, 5 its temporary
// directory. Both take 0 and return a NUL-terminated path ending in a backslash.
//
// Where the answers come from:
//   TARNEL31_WKSTA     the workstation directory; default C:\KOVRA\DAT\<computer name>\ (with its backslash)
//   TARNEL31_WKSTATMP  its temporary directory; default the workstation directory + "TMP\"
// A value without a final backslash gets one.
#pragma once

#if defined(TARNEL31_BUILDING_DLL)
#define TARNEL31_API __declspec(dllexport)
#else
#define TARNEL31_API __declspec(dllimport)
#endif

extern "C" {
TARNEL31_API const char* TarnelWkstaDir(int reserved);     // ordinal 2
TARNEL31_API const char* TarnelWkstaTmpDir(int reserved);  // ordinal 5
}
