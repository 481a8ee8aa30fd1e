// Reading the configuration file CKOVRA.INI at start-up. A null file name stands for a
// name that couldn't be put together: such a configuration counts as missing.
#pragma once

// The first process on the machine: adds the built-in types, reads the general settings
// and fills the shared file-type table from the type sections. 0 when the file is wrong
// (the stop box has been shown): the library must not load.
int ReadConfigurationFirstProcess(const char* fileName);

// Every later process: reads only the general settings (three attempts to open the
// file, a second apart). Always 1.
int ReadConfigurationLaterProcess(const char* fileName);
