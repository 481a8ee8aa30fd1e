// Where an installation is found: the base path that a workstation directory belongs to
// and the name under which CKOVRA.INI is opened. The library starts from these, and so
// does the kovra tool when it looks for an installation before it loads the library.
#pragma once

#include "platform/File.h"

// Cuts a workstation directory right behind the leading backslash of its last "\DAT\",
// which leaves the installation's base path (all of it without a "\DAT\").
void CutBehindLastDataDirectory(char* path);

constexpr char kConfigHomeVariable[] = "KARVELO-CKOVRAHOME";

// The name of the configuration file as the library opens it with the type "DFT": the
// directory in KARVELO-CKOVRAHOME with CKOVRA.INI, or else DAT\CKOVRA.INI, which the type
// resolves below the base path. False, and name empty, when the variable's directory
// leaves no room for the name: the configuration then counts as missing.
bool BuildConfigFileName(char (&name)[kPathBufferSize]);
