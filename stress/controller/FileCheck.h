// Working out from the file workers' journals where every file must be, and comparing
// that with the files found below the installation's base path.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace stress {

struct FileFigures {
    long made = 0;
    long renamed = 0;          // by Rename
    long backedUp = 0;         // by SaveFile, renaming
    long backedUpByCopy = 0;   // by SaveFile, copying
    long removed = 0;
    long holds = 0;
    long retried = 0;          // calls that succeeded after sharing violations
    std::map<int, long> failuresByCause;
    long found = 0;            // files in the tree at the end
    long leftByCopy = 0;       // second copies of a file that a backup by copying left
    long lost = 0;             // files made that are neither found nor reached by a removal
    long duplicated = 0;       // files found where they must no longer be, or more often than copies explain
    long foreign = 0;          // a file no journal accounts for, or with wrong contents
    long unexplained = 0;      // failures without a cause, journal records not understood

    long Lost() const { return lost + duplicated + foreign + unexplained; }
};

// journals: the workers' journal files; basePath: where the files live (WORK\ and SAV\).
FileFigures CheckFiles(const std::vector<std::string>& journals, const std::string& basePath,
                       std::vector<std::string>& problems);

// The name of a cause that GetLastError reports.
const char* CauseName(int cause);

} // namespace stress
