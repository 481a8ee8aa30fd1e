#include "FileCheck.h"

#include <set>
#include <sstream>

#include "../Shared.h"
#include "Directory.h"

namespace stress {

namespace {

constexpr size_t kProblemsKept = 20;

// One name a file had. Names are never used twice: a file reaches a name by being made
// there or by moves and copies from one other name. (Two moves of the same file may both
// report success: each opens the file and renames what it opened, wherever it is by then.)
struct Place {
    std::string token;            // of the file made here
    std::set<std::string> from;   // the names it was moved or copied from
    bool movedAway = false;       // renamed, or backed up by renaming: nothing is here any more
    int copiesAway = 0;           // backups by copying: the file may still be here as well
    bool removed = false;         // Remove reported it gone: nothing is here any more
    bool Reached() const { return !token.empty() || !from.empty(); }
};

// What became of one file: how often it was found, and what may explain its absence or
// its copies.
struct Fate {
    long found = 0;
    int copies = 0;
    bool removed = false;
};

class Places {
public:
    // Reads one journal record into the places and the figures; false when it isn't one.
    bool Read(const std::string& line, FileFigures& figures, std::vector<std::string>& problems)
    {
        std::istringstream fields(line);
        std::string record, first, second;
        int cause = 0;
        fields >> record >> first >> second;
        if (record == kBorn) {
            m_places[Upper(first)].token = second;
            ++figures.made;
        } else if (record == kMoved || record == kCopied) {
            Arrive(Upper(first), Upper(second), record == kMoved, figures);
        } else if (record == kRemoved) {
            m_places[Upper(first)].removed = true;
            ++figures.removed;
        } else if (record == kFailed && fields >> cause) {
            ++figures.failuresByCause[cause];
            if (cause == 0) {
                ++figures.unexplained;
                Note(problems, first + " of " + second + " failed without a cause");
            }
        } else if (record == kRetried) {
            ++figures.retried;
        } else if (record == kHeld) {
            ++figures.holds;
        } else {
            return false;
        }
        return true;
    }

    // Counts a file found at path with content for its file; false when no journal
    // accounts for it there.
    bool Account(const std::string& path, const std::string& content, FileFigures& figures,
                 std::vector<std::string>& problems)
    {
        auto place = m_places.find(path);
        const std::string token = TokenOfContent(content);
        if (place == m_places.end() || token.empty() || TokenOf(path) != token)
            return false;
        if (place->second.movedAway || place->second.removed) {
            ++figures.duplicated;
            Note(problems, "still or again there: " + path);
        }
        ++m_fates[token].found;
        return true;
    }

    // Every file made must be found once, or more often by its backups by copying, or
    // not at all when a removal reached it.
    void Compare(FileFigures& figures, std::vector<std::string>& problems)
    {
        for (const auto& entry : m_places) {
            const Place& place = entry.second;
            const std::string token = TokenOf(entry.first);
            if (place.Reached() && token.empty()) {
                ++figures.unexplained;
                Note(problems, "no file was made on the way to " + entry.first);
            }
            if (place.from.size() > 1) {
                ++figures.unexplained;
                Note(problems, entry.first + " was reached from " + std::to_string(place.from.size()) + " places");
            }
            Fate& fate = m_fates[token];
            fate.copies += place.copiesAway;
            fate.removed = fate.removed || place.removed;
        }
        for (const auto& entry : m_fates) {
            const Fate& fate = entry.second;
            if (entry.first.empty())
                continue;
            if (fate.found == 0 && !fate.removed) {
                ++figures.lost;
                Note(problems, "lost: the file made as " + entry.first);
            } else if (fate.found > 1 + fate.copies) {
                ++figures.duplicated;
                Note(problems, "the file made as " + entry.first + " is there " + std::to_string(fate.found) + " times");
            } else if (fate.found > 1) {
                figures.leftByCopy += fate.found - 1;
            }
        }
    }

    static void Note(std::vector<std::string>& problems, const std::string& problem)
    {
        if (problems.size() < kProblemsKept)
            problems.push_back(problem);
    }

private:
    void Arrive(const std::string& from, const std::string& to, bool moved, FileFigures& figures)
    {
        m_places[to].from.insert(from);
        Place& source = m_places[from];
        if (moved)
            source.movedAway = true;
        else
            ++source.copiesAway;
        bool backup = to.find(std::string("\\") + kBackupDirectory + "\\") != std::string::npos;
        ++(moved ? (backup ? figures.backedUp : figures.renamed) : figures.backedUpByCopy);
    }

    // The token of the file made at the start of the chain of moves that ends at path.
    std::string TokenOf(const std::string& path) const
    {
        std::string at = path;
        for (size_t step = 0; step <= m_places.size(); ++step) {
            auto place = m_places.find(at);
            if (place == m_places.end())
                return "";
            if (!place->second.token.empty() || place->second.from.empty())
                return place->second.token;
            at = *place->second.from.begin();
        }
        return "";  // a circle
    }

    std::map<std::string, Place> m_places;
    std::map<std::string, Fate> m_fates;  // by token
};

} // namespace

FileFigures CheckFiles(const std::vector<std::string>& journals, const std::string& basePath,
                       std::vector<std::string>& problems)
{
    FileFigures figures;
    Places places;
    for (const std::string& journal : journals) {
        std::istringstream lines(ReadWholeFile(journal));
        std::string line;
        while (std::getline(lines, line)) {
            if (!places.Read(line, figures, problems)) {
                ++figures.unexplained;
                Places::Note(problems, "journal record not understood: " + line);
            }
        }
    }

    for (const std::string& path : ListFilesBelow(basePath, {"DAT", "CKOVRA.LOG"})) {
        ++figures.found;
        if (!places.Account(path, ReadWholeFile(path), figures, problems)) {
            ++figures.foreign;
            Places::Note(problems, "no journal accounts for " + path + " and its contents");
        }
    }
    places.Compare(figures, problems);
    return figures;
}

const char* CauseName(int cause)
{
    static const char* const kNames[] = {"none", "generic", "file not found", "bad path", "too many open files",
                                         "access denied", "invalid file", "remove current directory", "directory full",
                                         "bad seek", "hard I/O", "sharing violation", "lock violation", "disk full",
                                         "end of file"};
    return cause >= 0 && cause < static_cast<int>(sizeof kNames / sizeof kNames[0]) ? kNames[cause] : "other";
}

} // namespace stress
