// Commands on files named by type and name: the library resolves every name, so the
// tool sees an installation the way its applications do.
#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Cli.h"
#include "kovra/kovra.h"

namespace kovracli {

namespace {

constexpr unsigned int kCopyBlock = 8192;
constexpr int kSectionBufferSize = 32768;
constexpr char kMissingValue[] = "\x01kovra-missing\x01";  // no profile value looks like this

const char* Positional(const Arguments& arguments, size_t index)
{
    return arguments.positional[index].c_str();
}

// Resolves the (type, name) that stand at typeIndex into file without opening anything;
// false after reporting the failure.
bool Resolve(CKovra& file, const Arguments& arguments, size_t typeIndex = 0)
{
    if (file.Open(Positional(arguments, typeIndex), Positional(arguments, typeIndex + 1), KOVRA_RESOLVE_ONLY))
        return true;
    Fail(file, "can't resolve " + arguments.positional[typeIndex + 1]);
    return false;
}

// The real path of the destination (type, name) at positions 2 and 3, for messages.
std::string DestinationPath(const Arguments& arguments)
{
    CKovra destination;
    destination.Open(Positional(arguments, 2), Positional(arguments, 3), KOVRA_RESOLVE_ONLY);
    return destination.GetRealFileName();
}

} // namespace

bool OpenExisting(CKovra& file, const Arguments& arguments, unsigned long options, const std::string& missing)
{
    if (!Resolve(file, arguments))
        return false;
    if (!file.Access()) {
        Complain(missing + file.GetRealFileName());
        return false;
    }
    if (file.Open(Positional(arguments, 0), Positional(arguments, 1), options))
        return true;
    Fail(file, "can't open " + arguments.positional[1]);
    return false;
}

int RunCat(const Arguments& arguments)
{
    const unsigned long options = arguments.Has("--text") ? KOVRA_READ | KOVRA_TEXT : KOVRA_READ;
    CKovra file;
    if (!ApplyContext(arguments) || !OpenExisting(file, arguments, options))
        return kExitFailure;
    _setmode(_fileno(stdout), _O_BINARY);  // the bytes as the library hands them over
    std::vector<char> block(kCopyBlock);
    for (unsigned int read; (read = file.Read(block.data(), kCopyBlock)) != 0;)
        std::fwrite(block.data(), 1, read, stdout);
    std::fflush(stdout);
    int cause = 0;
    char message[1024] = "";
    if (file.GetLastError(&cause, message, sizeof message - 1))  // a failed read ends the loop like the end
        return Complain(message);
    return kExitOk;
}

int RunCopy(const Arguments& arguments)
{
    CKovra file;
    if (!ApplyContext(arguments) || !Resolve(file, arguments))
        return kExitFailure;
    const int failIfExists = arguments.Has("--no-overwrite") ? 1 : 0;
    if (file.CopyFileA(Positional(arguments, 2), Positional(arguments, 3), failIfExists))
        return kExitOk;
    const unsigned long error = ::GetLastError();
    return Fail(file, std::string("can't copy ") + file.GetRealFileName() + " to " + DestinationPath(arguments) + ": " +
                          SystemMessage(error));
}

int RunAppend(const Arguments& arguments)
{
    CKovra file;
    if (!ApplyContext(arguments) || !OpenExisting(file, arguments, KOVRA_READ, "nothing to append: there is no file "))
        return kExitFailure;
    file.Close(2);  // AppendFile reads a closed file itself; the type stays for that
    if (file.AppendFile(Positional(arguments, 2), Positional(arguments, 3)))
        return kExitOk;
    // The object records only its own refusal; the destination keeps its failure to itself.
    const std::string destinationPath = DestinationPath(arguments);
    CKovra destination(Positional(arguments, 2), Positional(arguments, 3), KOVRA_APPEND);
    if (!destination.IsOpen())
        return Fail(destination, "can't open " + destinationPath, "can't append to " + destinationPath);
    return Fail(file, "nothing appended to " + destinationPath);
}

int RunSave(const Arguments& arguments)
{
    CKovra file;
    if (!ApplyContext(arguments) || !Resolve(file, arguments))
        return kExitFailure;
    if (!file.SaveFile(nullptr, arguments.Value("--dir"), arguments.Value("--ext")))
        return Fail(file, std::string("can't save ") + file.GetRealFileName());
    Say(std::string(file.GetRealFileName()) + "\n");
    return kExitOk;
}

int RunMove(const Arguments& arguments)
{
    CKovra file;
    if (!ApplyContext(arguments) || !Resolve(file, arguments))
        return kExitFailure;
    std::vector<char> newName(arguments.positional[3].begin(), arguments.positional[3].end());
    newName.push_back('\0');
    if (!file.Rename(Positional(arguments, 2), newName.data()))
        return Fail(file, std::string("can't move ") + file.GetRealFileName());
    Say(std::string(file.GetRealFileName()) + "\n");
    return kExitOk;
}

int RunRemove(const Arguments& arguments)
{
    CKovra file;
    if (!ApplyContext(arguments) || !Resolve(file, arguments))
        return kExitFailure;
    if (!file.Remove())
        return Fail(file, std::string("can't remove ") + file.GetRealFileName());
    return kExitOk;
}

int RunFind(const Arguments& arguments)
{
    const char* type = Positional(arguments, 0);
    const char* pattern = arguments.positional.size() > 1 ? Positional(arguments, 1) : "*.*";
    CKovra resolved;
    if (!ApplyContext(arguments))
        return kExitFailure;
    if (!resolved.Open(type, pattern, KOVRA_RESOLVE_ONLY))
        return Fail(resolved, std::string("can't resolve ") + pattern);

    CKovraFind find;
    if (!find.FindFile(type, pattern))
        return Complain(std::string("nothing matches ") + resolved.GetRealFileName());
    while (find.FindNextFileA()) {
        if (find.IsDots())
            continue;
        if (find.IsDirectory())
            std::printf("%10s  %s\n", "<DIR>", find.GetFilePathRelative());
        else
            std::printf("%10lu  %s\n", find.GetLength(), find.GetFilePathRelative());
    }
    std::fflush(stdout);
    return kExitOk;
}

namespace {

int ProfileGet(CKovra& file, const Arguments& arguments)
{
    const char* section = arguments.positional[3].c_str();
    const std::string where = std::string(" of ") + file.GetRealFileName();
    if (!file.Access())
        return Complain(std::string("there is no file ") + file.GetRealFileName());
    if (arguments.positional.size() == 5) {
        std::vector<char> value(kSectionBufferSize);
        file.GetProfile(section, arguments.positional[4].c_str(), kMissingValue, value.data(), kSectionBufferSize);
        if (std::strcmp(value.data(), kMissingValue) == 0)
            return Complain("no key " + arguments.positional[4] + " in [" + section + "]" + where);
        Say(std::string(value.data()) + "\n");
        return kExitOk;
    }
    std::vector<char> entries(kSectionBufferSize);
    if (!file.GetProfileSectionA(section, entries.data(), kSectionBufferSize))
        return Complain(std::string("no section [") + section + "]" + where);
    for (const char* entry = entries.data(); *entry; entry += std::strlen(entry) + 1)
        std::printf("%s\n", entry);
    std::fflush(stdout);
    return kExitOk;
}

int ProfileSet(CKovra& file, const Arguments& arguments)
{
    const char* section = arguments.positional[3].c_str();
    file.MkDir();
    if (file.WriteProfile(section, arguments.positional[4].c_str(), arguments.positional[5].c_str()))
        return kExitOk;
    const unsigned long error = ::GetLastError();
    return Complain(std::string("can't write [") + section + "] to " + file.GetRealFileName() + ": " +
                    SystemMessage(error));
}

} // namespace

// profile get TYPE NAME SECTION [KEY] | profile set TYPE NAME SECTION KEY VALUE; the
// action stands first, so (type, name) are positions 1 and 2 here.
int RunProfile(const Arguments& arguments)
{
    const std::string& action = arguments.positional[0];
    const size_t count = arguments.positional.size();
    const bool get = action == "get" && (count == 4 || count == 5);
    const bool set = action == "set" && count == 6;
    if (!get && !set) {
        std::fprintf(stderr, "kovra: profile wants 'get TYPE NAME SECTION [KEY]' or "
                             "'set TYPE NAME SECTION KEY VALUE'\n");
        return kExitUsage;
    }
    CKovra file;
    if (!ApplyContext(arguments) || !Resolve(file, arguments, 1))
        return kExitFailure;
    return get ? ProfileGet(file, arguments) : ProfileSet(file, arguments);
}

} // namespace kovracli
