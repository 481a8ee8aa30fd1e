// Messages of the tool and the context options shared by the file commands.
#include <windows.h>

#include <cstdio>

#include "Cli.h"
#include "kovra/kovra.h"

namespace kovracli {

namespace {

constexpr int kMessageSize = 1024;

// What the library's own error numbers mean; its text shows only the number.
const char* ErrorExplanation(int error)
{
    switch (error) {
    case -1:
        return "unknown file type";
    case -2:
        return "the name or its real path is longer than 259 characters";
    case -3:
        return "a target name or a time stamp that the library can't take";
    case -4:
        return "the target is the file itself";
    default:
        return nullptr;
    }
}

} // namespace

const char* Arguments::Value(const std::string& option) const
{
    auto found = values.find(option);
    return found == values.end() ? nullptr : found->second.c_str();
}

int Complain(const std::string& text)
{
    std::fprintf(stderr, "kovra: %s\n", text.c_str());
    std::fflush(stderr);
    return kExitFailure;
}

int Fail(CKovra& file, const std::string& fallback, const std::string& context)
{
    int cause = 0;
    char message[kMessageSize] = "";
    if (!file.GetLastError(&cause, message, sizeof message - 1))
        return Complain(fallback);
    std::string text = context.empty() ? message : context + ": " + message;
    if (const char* explanation = ErrorExplanation(cause))
        text += std::string(": ") + explanation;
    return Complain(text);
}

std::string SystemMessage(unsigned long error)
{
    char text[kMessageSize] = "";
    DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                    text, sizeof text, nullptr);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r' || text[length - 1] == ' '))
        text[--length] = '\0';
    return length > 0 ? text : "system error " + std::to_string(error);
}

bool ApplyContext(const Arguments& arguments)
{
    struct Setter {
        const char* option;
        int (*apply)(const char*, int);
    };
    const Setter setters[] = {
        {"--module", &CKovra::SetModulePath}, {"--client", &CKovra::SetClient}, {"--user", &CKovra::SetUser}};
    for (const Setter& setter : setters) {
        const char* value = arguments.Value(setter.option);
        if (value && !setter.apply(value, 0)) {
            Complain(std::string("the library refused ") + setter.option + " " + value + ": it is too long");
            return false;
        }
    }
    return true;
}

void Say(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

} // namespace kovracli
