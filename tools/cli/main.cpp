// kovra: the command-line tool on the library, for the people who run an installation
// and for developers who debug one. This file holds the command table, the argument
// parsing and the help texts; the commands themselves are in Commands.cpp and
// FileCommands.cpp.
#include <cstdio>
#include <cstring>
#include <string>

#include "Cli.h"

using namespace kovracli;

namespace {

const std::vector<std::string> kContext = {"--user", "--client", "--module"};

std::vector<std::string> WithContext(std::vector<std::string> options)
{
    options.insert(options.end(), kContext.begin(), kContext.end());
    return options;
}

const char kContextHelp[] =
    "  --user U      resolve as user U (the session's user becomes USERS\\U)\n"
    "  --client C    resolve for client C (the session's client becomes CLIENTS\\C)\n"
    "  --module DIR  the module directory of the session (locations MODULE, MODULECLIENT,\n"
    "                MODULEREADONLY)\n";

const Command kCommands[] = {
    {"resolve", "resolve TYPE NAME [--user U] [--client C] [--module DIR]", "print the real path of a file",
     "Prints the real path that the library makes of TYPE and NAME, date fields such as\n"
     "%Y%M%D replaced. Nothing is opened or created.\n",
     2, 2, WithContext({}), {}, &RunResolve},
    {"types", "types", "list the shared file-type table",
     "Lists every file type of the table that all processes share: its name, its location\n"
     "word and its encryption word.\n",
     0, 0, {}, {}, &RunTypes},
    {"settings", "settings", "show the paths, debug level, option bits and process counter in force",
     "Shows what the library derived in this process: the configuration file, the base,\n"
     "data, read-only and workstation paths, the debug level and option bits with the\n"
     "meaning of each bit, the sharing-violation repeat factor and the process counter\n"
     "(0 when no other process has the library loaded).\n",
     0, 0, {}, {}, &RunSettings},
    {"check-config", "check-config [FILE]", "check a configuration file, line by line",
     "Reads FILE the way the first process reads CKOVRA.INI and reports every problem\n"
     "with its line number: unknown keys and location or encryption words, BaseType\n"
     "chains that end nowhere or loop, type names longer than 35 characters, repeated\n"
     "sections, values that aren't numbers. FILE defaults to the configuration file that\n"
     "the library reads. The check loads no library, so it works before an installation\n"
     "is set up. Exit status 0 without problems, 1 with some.\n",
     0, 1, {}, {}, &RunCheckConfig, false},
    {"cat", "cat TYPE NAME [--text] [context options]", "write a file to the standard output",
     "Writes the file's bytes to the standard output. With --text the library reads it in\n"
     "text mode, which drops every CR byte: CR LF line ends come out as LF.\n",
     2, 2, WithContext({}), {"--text"}, &RunCat},
    {"copy", "copy TYPE NAME TO-TYPE TO-NAME [--no-overwrite] [context options]", "copy a file",
     "Copies the file to (TO-TYPE, TO-NAME), making the directories it needs. With\n"
     "--no-overwrite an existing destination is an error.\n",
     4, 4, WithContext({}), {"--no-overwrite"}, &RunCopy},
    {"append", "append TYPE NAME TO-TYPE TO-NAME [context options]", "append a file to another",
     "Appends the file's contents to (TO-TYPE, TO-NAME), which is created when missing.\n", 4, 4,
     WithContext({}), {}, &RunAppend},
    {"save", "save TYPE NAME [--dir DIR] [--ext EXT] [context options]", "move a file to a dated backup",
     "Moves the file to the day's next free backup, <yymmdd><nn>.EXT in the directory DIR\n"
     "resolved with the file's type (DIR and EXT default to SAV), and prints its path.\n",
     2, 2, WithContext({"--dir", "--ext"}), {}, &RunSave},
    {"mv", "mv TYPE NAME TO-TYPE TO-NAME [context options]", "rename or move a file",
     "Moves the file to (TO-TYPE, TO-NAME), making the directories it needs, retrying\n"
     "while another process holds it, and prints the new path.\n",
     4, 4, WithContext({}), {}, &RunMove},
    {"rm", "rm TYPE NAME [context options]", "remove a file",
     "Removes the file, retrying while another process holds it. A file that isn't there\n"
     "counts as removed.\n",
     2, 2, WithContext({}), {}, &RunRemove},
    {"find", "find TYPE [PATTERN] [context options]", "list the entries that match a pattern",
     "Lists the entries of the type's directory that match PATTERN (default *.*): the size\n"
     "or <DIR>, then the path relative to the type's directory.\n",
     1, 2, WithContext({}), {}, &RunFind},
    {"profile", "profile get TYPE NAME SECTION [KEY] | profile set TYPE NAME SECTION KEY VALUE",
     "read or write a profile (INI) file",
     "get prints the value of KEY, or every KEY=VALUE line of SECTION without a KEY;\n"
     "set writes the value, making the file and its directory when missing.\n",
     4, 6, WithContext({}), {}, &RunProfile},
    {"hold", "hold TYPE NAME [--for MS | --until-event NAME] [--ready-event NAME]",
     "keep a file open exclusively, to try what others meet",
     "Opens the file exclusively and prints \"holding <path>\". It lets go after MS\n"
     "milliseconds, once the named event is set, or else when a line is typed. With\n"
     "--ready-event it sets that event once the file is held.\n",
     2, 2, WithContext({"--for", "--until-event", "--ready-event"}), {}, &RunHold},
};

const Command* FindCommand(const std::string& name)
{
    for (const Command& command : kCommands)
        if (name == command.name)
            return &command;
    return nullptr;
}

bool Contains(const std::vector<std::string>& options, const std::string& option)
{
    for (const std::string& known : options)
        if (known == option)
            return true;
    return false;
}

void PrintToolHelp(FILE* stream)
{
    std::fputs("Usage: kovra COMMAND [ARGUMENTS]\n"
               "       kovra COMMAND --help\n"
               "\n"
               "Works on the files of an installation by file type and name, through kovra.dll,\n"
               "with the environment and CKOVRA.INI that the library finds. Where it would find\n"
               "no CKOVRA.INI, the tool says where it looked instead of loading the library.\n"
               "\n"
               "Commands:\n",
               stream);
    for (const Command& command : kCommands)
        std::fprintf(stream, "  %-14s%s\n", command.name, command.summary);
    std::fputs("\nExit status: 0 on success, 1 when the library or the system reports a failure\n"
               "(its text goes to the standard error), 2 for wrong arguments.\n",
               stream);
}

void PrintCommandHelp(const Command& command, FILE* stream)
{
    std::fprintf(stream, "Usage: kovra %s\n\n%s", command.synopsis, command.details);
    if (Contains(command.valueOptions, "--user"))
        std::fprintf(stream, "\nContext options:\n%s", kContextHelp);
}

int UsageError(const Command& command, const std::string& problem)
{
    std::fprintf(stderr, "kovra %s: %s\n", command.name, problem.c_str());
    PrintCommandHelp(command, stderr);
    return kExitUsage;
}

// Parses the arguments behind the command's name; the exit status when it shouldn't run.
bool Parse(const Command& command, int argc, char** argv, Arguments& arguments, int& exitCode)
{
    bool optionsEnded = false;
    for (int index = 2; index < argc; ++index) {
        const std::string argument = argv[index];
        if (optionsEnded || argument.compare(0, 2, "--") != 0) {
            arguments.positional.push_back(argument);
        } else if (argument == "--") {
            optionsEnded = true;
        } else if (argument == "--help") {
            PrintCommandHelp(command, stdout);
            exitCode = kExitOk;
            return false;
        } else if (Contains(command.switchOptions, argument)) {
            arguments.switches.insert(argument);
        } else if (Contains(command.valueOptions, argument) && index + 1 < argc) {
            arguments.values[argument] = argv[++index];
        } else {
            exitCode = UsageError(command, Contains(command.valueOptions, argument) ? argument + " wants a value"
                                                                                    : "unknown option " + argument);
            return false;
        }
    }
    const size_t count = arguments.positional.size();
    if (count < command.minPositional || count > command.maxPositional) {
        exitCode = UsageError(command, count < command.minPositional ? "too few arguments" : "too many arguments");
        return false;
    }
    return true;
}

} // namespace

int kovracli::UsageError(const std::string& command, const std::string& problem)
{
    return ::UsageError(*FindCommand(command), problem);
}

int main(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "";
    if (name == "--help" || name == "help") {
        const Command* command = argc > 2 ? FindCommand(argv[2]) : nullptr;
        if (command)
            PrintCommandHelp(*command, stdout);
        else
            PrintToolHelp(stdout);
        return kExitOk;
    }
    const Command* command = FindCommand(name);
    if (!command) {
        if (!name.empty())
            std::fprintf(stderr, "kovra: unknown command %s\n\n", name.c_str());
        PrintToolHelp(stderr);
        return kExitUsage;
    }
    Arguments arguments;
    int exitCode = kExitOk;
    if (!Parse(*command, argc, argv, arguments, exitCode))
        return exitCode;
    if (command->loadsLibrary && !LoadKovraLibrary())
        return kExitFailure;
    return command->run(arguments);
}
