// Checking a configuration file before it is put in place. Compiled into the library,
// whose KovraCheckConfig calls it, and into the kovra tool, which checks a file without
// loading the library.
#pragma once

#include "kovra/diag.h"

// Reports every problem of the file with its line number (0 for the file as a whole);
// the number of problems, or -1 when the file can't be read.
int CheckConfigFile(const char* path, KovraConfigProblemFn report, void* context);
