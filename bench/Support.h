// Files and child processes for the benchmark programs.
#pragma once

#include <windows.h>

#include <string>

namespace bench {

// Creates the directory and its missing parents.
void MakeDirectories(const std::string& directory);

// Writes bytes as the whole file, making its directories first.
void WriteFileBytes(const std::string& path, const std::string& bytes);

// Runs this program again with the arguments and the environment variable set to value
// (it stays set in this process too), its output on this program's; waits for it and
// returns its exit code (~0 when it can't be started).
DWORD RunThisProgram(const std::string& arguments, const char* variable, const std::string& value);

// What line reading by the library's contract leaves to the platform for one line: one
// read of 512 bytes, and the file position moved back behind the line. The line goes to
// line (room for 512 bytes and a NUL), in text mode without its CR and LF bytes. False at
// the end of the file.
bool ReadLineByFloor(HANDLE file, char* line, bool text);

// "i686 (32-bit)" or "x86_64 (64-bit)": the target the program was built for.
const char* TargetName();

} // namespace bench
