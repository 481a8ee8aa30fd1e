#include "LogCheck.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "../Shared.h"

namespace stress {

namespace {

constexpr size_t kStampLength = 18;               // "dd.mm hh:mm:ss.mmm"
constexpr char kSeparator[] = " -------- ";
constexpr size_t kTextStart = kStampLength + sizeof kSeparator - 1;

bool IsDigits(const std::string& line, size_t at, size_t count, int limit)
{
    int value = 0;
    for (size_t index = at; index < at + count; ++index) {
        if (line[index] < '0' || line[index] > '9')
            return false;
        value = value * 10 + (line[index] - '0');
    }
    return value < limit;
}

bool IsTimeStamp(const std::string& line)
{
    return line.size() >= kStampLength && IsDigits(line, 0, 2, 32) && line[2] == '.' && IsDigits(line, 3, 2, 13) &&
           line[5] == ' ' && IsDigits(line, 6, 2, 24) && line[8] == ':' && IsDigits(line, 9, 2, 60) &&
           line[11] == ':' && IsDigits(line, 12, 2, 60) && line[14] == '.' && IsDigits(line, 15, 3, 1000);
}

bool IsPrintable(const std::string& text)
{
    for (unsigned char c : text) {
        if (c < 0x20 || c > 0x7E)
            return false;
    }
    return true;
}

// The text of a well-formed line, or false.
bool EventText(const std::string& line, std::string& text)
{
    if (!IsTimeStamp(line) || line.compare(kStampLength, sizeof kSeparator - 1, kSeparator) != 0 ||
        line.size() <= kTextStart || line[kTextStart] != '*' || !IsPrintable(line))
        return false;
    text = line.substr(kTextStart);
    return true;
}

std::string Format(const char* format, unsigned value, const std::string& path)
{
    char text[512];
    std::snprintf(text, sizeof text, format, value, path.c_str());
    return text;
}

bool StartsWith(const std::string& text, const char* prefix)
{
    return text.compare(0, std::strlen(prefix), prefix) == 0;
}

class EventLines {
public:
    EventLines(const EventLoad& load, const std::string& basePath)
        : m_load(load), m_basePath(basePath), m_seen(static_cast<size_t>(load.processes * load.threads * load.pairs) * 2)
    {
    }

    // Counts the text when it is a line of the load; false for any other text.
    bool Count(const std::string& text)
    {
        static const struct {
            const char* prefix;
            const char* format;
        } kKinds[] = {{"*StartSession (1,", "*StartSession (1,%x,1,%s,)"}, {"*RemoveSession (", "*RemoveSession (%x,0,%s)"}};
        for (size_t kind = 0; kind < 2; ++kind) {
            if (!StartsWith(text, kKinds[kind].prefix))
                continue;
            unsigned value = std::strtoul(text.c_str() + std::strlen(kKinds[kind].prefix), nullptr, 16);
            long index = Index(value);
            if (index < 0 || text != Format(kKinds[kind].format, value, m_basePath))
                return false;
            ++m_seen[static_cast<size_t>(index) * 2 + kind];
            return true;
        }
        return false;
    }

    void AddTo(EventLogFigures& figures) const
    {
        figures.expected = static_cast<long>(m_seen.size());
        for (unsigned count : m_seen) {
            if (count == 0)
                ++figures.missing;
            else if (count == 1)
                ++figures.once;
            else
                ++figures.duplicated;
        }
    }

private:
    long Index(unsigned value) const
    {
        int process = value >> 20 & 0xF, thread = value >> 16 & 0xF, pair = value & 0xFFFF;
        if (!IsEventSession(value) || process >= m_load.processes || thread >= m_load.threads || pair >= m_load.pairs)
            return -1;
        return (static_cast<long>(process) * m_load.threads + thread) * m_load.pairs + pair;
    }

    EventLoad m_load;
    std::string m_basePath;
    std::vector<unsigned> m_seen;
};

// A registry line of a worker's own process session, made by its start-up or shut-down.
bool IsWorkerLine(const std::string& text, const std::vector<DWORD>& workerIds)
{
    static const char* const kRegistryLines[] = {"*StartSession (", "*StartThread (", "*RemoveThread (",
                                                 "*RemoveSession ("};
    bool registry = false;
    for (const char* prefix : kRegistryLines)
        registry = registry || StartsWith(text, prefix);
    if (!registry)
        return false;
    for (DWORD id : workerIds) {
        char field[16];
        std::snprintf(field, sizeof field, "%x", static_cast<unsigned>(id));
        size_t at = text.find(field);
        if (at != std::string::npos && (text[at - 1] == '(' || text[at - 1] == ',') &&
            (text[at + std::strlen(field)] == ',' || text[at + std::strlen(field)] == ')'))
            return true;
    }
    return false;
}

} // namespace

EventLogFigures CheckEventLog(const std::string& log, const EventLoad& load, const std::string& basePath,
                              const std::vector<DWORD>& workerIds)
{
    EventLogFigures figures;
    EventLines lines(load, basePath);
    std::set<std::string> workerLines;
    size_t start = 0;
    while (start < log.size()) {
        size_t end = log.find("\r\n", start);
        if (end == std::string::npos) {  // a last line without its CR LF
            ++figures.malformed;
            break;
        }
        std::string text;
        if (!EventText(log.substr(start, end - start), text)) {
            ++figures.malformed;
        } else if (!lines.Count(text)) {
            if (IsWorkerLine(text, workerIds) && workerLines.insert(text).second)
                ++figures.processLines;
            else
                ++figures.foreign;
        }
        start = end + 2;
    }
    lines.AddTo(figures);
    return figures;
}

} // namespace stress
