// kovra: the command-line tool on the library. Shared parts of its sources: the parsed
// arguments, the command table's record and the helpers every command uses.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

class CKovra;

namespace kovracli {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// The arguments behind the command's name: positional ones in order, options by name.
struct Arguments {
    std::vector<std::string> positional;
    std::map<std::string, std::string> values;  // "--user" -> "ANNA"
    std::set<std::string> switches;             // "--text"

    bool Has(const std::string& option) const { return switches.count(option) != 0; }
    // The option's value, or nullptr when it wasn't given.
    const char* Value(const std::string& option) const;
};

using Handler = int (*)(const Arguments&);

struct Command {
    const char* name;
    const char* synopsis;  // the command's line of the usage text
    const char* summary;   // one line in the tool's help
    const char* details;   // the rest of the command's own help
    size_t minPositional;
    size_t maxPositional;
    std::vector<std::string> valueOptions;
    std::vector<std::string> switchOptions;
    Handler run;
    bool loadsLibrary = true;  // false: it runs without kovra.dll
};

// ---- helpers (Output.cpp) -----------------------------------------------------------------------

// "kovra: <text>" on stderr; returns kExitFailure.
int Complain(const std::string& text);
// Reports the object's recorded failure in the library's own words (behind context, when
// given), or fallback when the library recorded none; returns kExitFailure.
int Fail(CKovra& file, const std::string& fallback, const std::string& context = "");
// The system's text for an error code, without its line end.
std::string SystemMessage(unsigned long error);
// Applies --module, --client and --user to the calling thread's session, in that order.
// False (with a complaint) when the library refuses one.
bool ApplyContext(const Arguments& arguments);
// Prints the text and flushes, so that a reader on a pipe sees it at once.
void Say(const std::string& text);
// Opens the existing file (TYPE, NAME at positions 0 and 1) with the options. A missing file
// is reported as missing (its text first) without an open, which would make its directories.
// False after reporting the failure.
bool OpenExisting(CKovra& file, const Arguments& arguments, unsigned long options,
                  const std::string& missing = "there is no file ");
// "kovra COMMAND: problem" and the command's help on stderr; returns kExitUsage.
int UsageError(const std::string& command, const std::string& problem);

// ---- commands (Commands.cpp: the installation; FileCommands.cpp: files by type and name) -----

int RunResolve(const Arguments& arguments);
int RunTypes(const Arguments& arguments);
int RunSettings(const Arguments& arguments);
int RunCheckConfig(const Arguments& arguments);
int RunHold(const Arguments& arguments);
int RunCat(const Arguments& arguments);
int RunCopy(const Arguments& arguments);
int RunAppend(const Arguments& arguments);
int RunSave(const Arguments& arguments);
int RunMove(const Arguments& arguments);
int RunRemove(const Arguments& arguments);
int RunFind(const Arguments& arguments);
int RunProfile(const Arguments& arguments);

// ---- the installation (Installation.cpp) ---------------------------------------------------

// The configuration file that the library reads (or read) in this process; "" when
// KARVELO-CKOVRAHOME is too long to name one.
std::string ConfigurationFileInForce();
// Loads kovra.dll, unless it would find no configuration file: that is then explained on
// stderr. False when the library isn't loaded.
bool LoadKovraLibrary();

} // namespace kovracli
