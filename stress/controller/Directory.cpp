#include "Directory.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>

namespace stress {

namespace {

// Calls visit(name, isDirectory) for every entry of directory but "." and "..".
template <typename Visit>
void ForEachEntry(const std::string& directory, Visit visit)
{
    WIN32_FIND_DATAA entry;
    HANDLE search = ::FindFirstFileA((directory + "*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do {
        const std::string name = entry.cFileName;
        if (name != "." && name != "..")
            visit(name, (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
    } while (::FindNextFileA(search, &entry));
    ::FindClose(search);
}

void AddFilesBelow(const std::string& directory, const std::vector<std::string>& skipped,
                   std::vector<std::string>& files)
{
    ForEachEntry(directory, [&](const std::string& entry, bool isDirectory) {
        const std::string name = Upper(entry);
        if (std::find(skipped.begin(), skipped.end(), name) != skipped.end())
            return;
        if (isDirectory)
            AddFilesBelow(directory + name + "\\", {}, files);
        else
            files.push_back(directory + name);
    });
}

} // namespace

std::string ReadWholeFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::vector<std::string> ListFilesBelow(const std::string& directory, const std::vector<std::string>& skipped)
{
    std::vector<std::string> files;
    AddFilesBelow(Upper(directory), skipped, files);
    return files;
}

bool MakeDirectories(const std::string& path)
{
    for (size_t slash = path.find('\\', 3); slash != std::string::npos; slash = path.find('\\', slash + 1)) {
        if (!::CreateDirectoryA(path.substr(0, slash).c_str(), nullptr) && ::GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return true;
}

void RemoveTree(const std::string& directory)
{
    ForEachEntry(directory, [&](const std::string& name, bool isDirectory) {
        if (isDirectory)
            RemoveTree(directory + name + "\\");
        else
            ::DeleteFileA((directory + name).c_str());
    });
    ::RemoveDirectoryA(directory.c_str());
}

std::string Upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

} // namespace stress
