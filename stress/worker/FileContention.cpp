// File contention: two movers rename, back up and remove the same files and make new
// ones, while the holder keeps some of them open at random moments. Every outcome goes
// to the worker's journal, from which the controller works out where each file must be.
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "../Shared.h"
#include "Worker.h"
#include "kovra/kovra.h"

namespace stress {

namespace {

constexpr size_t kPopulation = 8;    // files the movers keep in the work directory
constexpr int kHeldAtOnce = 4;
constexpr DWORD kLongestHoldMs = 200;
constexpr DWORD kLongestPauseMs = 20;
constexpr int kRealPath = 1;         // the name flag: take the name as a real path

class Journal {
public:
    explicit Journal(const std::string& path) : m_file(std::fopen(path.c_str(), "w")) {}
    ~Journal()
    {
        if (m_file)
            std::fclose(m_file);
    }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    bool IsOpen() const { return m_file != nullptr; }
    void Write(const char* record, const std::string& first, const std::string& second = "")
    {
        std::fprintf(m_file, "%s %s%s%s\n", record, first.c_str(), second.empty() ? "" : " ", second.c_str());
    }

private:
    FILE* m_file;
};

// The files below the base path that match pattern (for instance "WORK\*.DAT").
std::vector<std::string> ListFiles(const char* pattern)
{
    std::vector<std::string> paths;
    CKovraFind find;
    if (find.FindFile("DFT", pattern)) {
        while (find.FindNextFileA()) {
            if (!find.IsDirectory() && !find.IsDots())
                paths.push_back(find.GetFilePath());
        }
    }
    return paths;
}

// The cause of the failure that file has pending, 0 when none is; clears it.
int PendingCause(CKovra& file)
{
    int cause = 0;
    char message[512] = "";
    return file.GetLastError(&cause, message, sizeof message - 1) ? cause : 0;
}

class Mover {
public:
    Mover(int index, const std::string& journal) : m_index(index), m_journal(journal), m_random(index + 101) {}

    bool IsReady() const { return m_journal.IsOpen(); }

    void Run(ULONGLONG deadline)
    {
        while (Now() < deadline) {
            std::vector<std::string> files = ListFiles("WORK\\*.DAT");
            if (files.size() < kPopulation) {
                Make();
                continue;
            }
            const std::string& path = files[m_random() % files.size()];
            unsigned choice = m_random() % 20;
            if (choice < 8)
                Rename(path);
            else if (choice < 15)
                Save(path);
            else
                Remove(path);
        }
    }

private:
    std::string NewName(char kind)
    {
        return std::string(kWorkDirectory) + "\\" + kind + std::to_string(m_index) + "_" + std::to_string(++m_counter) +
               ".DAT";
    }

    void Failed(const char* operation, const std::string& path, int cause)
    {
        m_journal.Write(kFailed, operation, path + " " + std::to_string(cause));
    }

    // A success after sharing violations still has the last violation pending.
    void Succeeded(const char* record, const char* operation, const std::string& from, const std::string& to,
                   CKovra& file)
    {
        m_journal.Write(record, from, to);
        if (int cause = PendingCause(file))
            m_journal.Write(kRetried, operation, from + " " + std::to_string(cause));
    }

    void Make()
    {
        std::string name = NewName('B');
        std::string token = "M" + name.substr(std::string(kWorkDirectory).size() + 1);
        token.resize(token.size() - 4);  // without ".DAT"
        const std::string content = FileContent(token);
        CKovra file("DFT", name.c_str(), KOVRA_READWRITE | KOVRA_EXCLUSIVE);
        bool made = file.IsOpen() && file.Write(content.data(), static_cast<unsigned>(content.size())) == content.size();
        const std::string path = file.GetRealFileName();
        if (!made) {
            Failed("make", path, PendingCause(file));
            return;
        }
        file.Close();
        m_journal.Write(kBorn, path, token);
    }

    void Rename(const std::string& path)
    {
        CKovra file;
        file.Open("DFT", path.c_str(), KOVRA_RESOLVE_ONLY, nullptr, kRealPath);
        std::string name = NewName('R');
        if (file.Rename("DFT", &name[0]))
            Succeeded(kMoved, "rename", path, file.GetRealFileName(), file);
        else
            Failed("rename", path, PendingCause(file));
    }

    // A backup made by copying leaves the rename's failure pending.
    void Save(const std::string& path)
    {
        CKovra file;
        file.Open("DFT", path.c_str(), KOVRA_RESOLVE_ONLY, nullptr, kRealPath);
        if (!file.SaveFile()) {
            Failed("save", path, PendingCause(file));
            return;
        }
        const std::string backup = file.GetRealFileName();
        int cause = PendingCause(file);
        m_journal.Write(cause ? kCopied : kMoved, path, backup);
        if (cause)
            Failed("save.rename", path, cause);
    }

    void Remove(const std::string& path)
    {
        CKovra file;
        file.Open("DFT", path.c_str(), KOVRA_RESOLVE_ONLY, nullptr, kRealPath);
        if (file.Remove())
            Succeeded(kRemoved, "remove", path, "", file);
        else
            Failed("remove", path, PendingCause(file));
    }

    int m_index;
    Journal m_journal;
    std::minstd_rand m_random;
    int m_counter = 0;
};

class Holder {
public:
    explicit Holder(const std::string& journal) : m_journal(journal), m_random(7) {}

    bool IsReady() const { return m_journal.IsOpen(); }

    // Holds a few files of the work directory and a backup at once, exclusively or
    // denying writes, then lets them go.
    void Run(ULONGLONG deadline)
    {
        while (Now() < deadline) {
            const std::vector<std::string> files = ListFiles("WORK\\*.DAT");
            const std::vector<std::string> backups = ListFiles("SAV\\*.*");
            CKovra held[kHeldAtOnce + 1];
            for (int index = 0; index < kHeldAtOnce && !files.empty(); ++index)
                Hold(held[index], files[m_random() % files.size()]);
            if (!backups.empty())
                Hold(held[kHeldAtOnce], backups[m_random() % backups.size()]);
            ::Sleep(m_random() % kLongestHoldMs);
            for (CKovra& file : held)
                file.Close();
            ::Sleep(m_random() % kLongestPauseMs);
        }
    }

    int Torn() const { return m_torn; }

private:
    void Hold(CKovra& file, const std::string& path)
    {
        unsigned long sharing = m_random() % 2 ? KOVRA_EXCLUSIVE : KOVRA_DENY_WRITE;
        if (!file.Open(nullptr, path.c_str(), KOVRA_READ | sharing, nullptr, kRealPath)) {
            m_journal.Write(kFailed, "hold", path + " " + std::to_string(PendingCause(file)));
            return;
        }
        m_journal.Write(kHeld, path);
        if (path.find(std::string("\\") + kWorkDirectory + "\\") != std::string::npos && !IsWhole(file)) {
            std::printf("files: %s was not whole when the holder read it\n", path.c_str());
            ++m_torn;
        }
    }

    // A file in the work directory is made whole before anyone else can open it.
    static bool IsWhole(CKovra& file)
    {
        std::string content(FileContent("M").size() + 4096, '\0');
        unsigned length = file.Read(&content[0], static_cast<unsigned>(content.size()));
        content.resize(length);
        return !TokenOfContent(content).empty();
    }

    Journal m_journal;
    std::minstd_rand m_random;
    int m_torn = 0;
};

} // namespace

int MoveFiles(int index, DWORD milliseconds, const std::string& journal)
{
    Mover mover(index, journal);
    if (!mover.IsReady())
        return 100;
    mover.Run(Now() + milliseconds);
    return 0;
}

int HoldFiles(DWORD milliseconds, const std::string& journal)
{
    Holder holder(journal);
    if (!holder.IsReady())
        return 100;
    holder.Run(Now() + milliseconds);
    return holder.Torn();
}

} // namespace stress
