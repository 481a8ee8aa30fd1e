// The controller's own work on files and directories, with the plain platform calls: it
// never loads the library, so that it neither writes to the log nor counts as a process.
#pragma once

#include <string>
#include <vector>

namespace stress {

std::string ReadWholeFile(const std::string& path);

// Every file below directory (ending in a backslash), in capitals, except the entries of
// directory itself named in skipped (in capitals).
std::vector<std::string> ListFilesBelow(const std::string& directory, const std::vector<std::string>& skipped);

// Makes every directory of path (ending in a backslash) that is missing.
bool MakeDirectories(const std::string& path);

// Removes directory (ending in a backslash) and everything in it.
void RemoveTree(const std::string& directory);

std::string Upper(std::string text);

} // namespace stress
