// An object and its own file: open/close, block and text I/O, positions, locks, times, profile, C interface.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <regex>
#include <sstream>
#include <thread>

#include "UnitChecks.h"
#include "kovra/capi.h"

using namespace kovratest;

namespace {

// Writing without write access: BlockTextIo. A read-only file opened for writing: the fault walk (wine run by
// root opens it). That resolving alone makes nothing: the randomized name run.
TEST(OpenClose, OwnTextsAsArgumentsAndOptionsDecideWhatIsOpenedCreatedKeptAndTruncatedAndMkDir)
{
    ScratchDirectory directory(kBase + "OC_OPTIONS");
    CKovra file("T_BASE", "OC_OPTIONS\\F.TXT", KOVRA_READWRITE);
    // Texts that an object hands out may come back as its arguments, whole or in part.
    EXPECT_EQ(1, file.Open(file.GetFileType(), file.GetFileName(), KOVRA_READWRITE));  // the file, not its directory
    EXPECT_EQ(directory / "F.TXT", file.GetRealFileName());
    EXPECT_EQ(kBase + "F.TXT", std::string(file.GetRealFileName("T_USER", file.GetFileName())));
    EXPECT_EQ(1, file.Open("T_BASE", file.GetFileName() + 11, KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(kBase + "F.TXT", file.GetRealFileName());
    ASSERT_EQ(1, CKovra::AddFileType("XT_BASE", 2, 1));  // a type and a name inside the type replaced
    file.Open("XT_BASE", "OC_OPTIONS\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.Open(file.GetFileType() + 1, file.GetFileType(), KOVRA_RESOLVE_ONLY));
    EXPECT_EQ("T_BASE " + kBase + "XT_BASE", std::string(file.GetFileType()) + " " + file.GetRealFileName());
    file.Open("T_BASE", "OC_OPTIONS\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.SaveFile(nullptr, "OC_OPTIONS", file.GetFileType()));  // outlives the type its Close drops
    const std::string backup = directory / (CurrentUtcDate("%y%m%d") + "01.T_BASE");
    EXPECT_EQ(backup, file.GetRealFileName());
    EXPECT_EQ(0, file.Open("NOPE", "G.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.GetLastError(nullptr, file.GetRealFileName(), 260));  // over the name it reports
    EXPECT_EQ("Kovra : KOVRA_ERROR(NOPE, G.TXT, " + backup + ", -1)", file.GetRealFileName());

    const char* name = "OC_OPTIONS\\RW\\F.TXT";
    EXPECT_EQ(0, file.Open("T_BASE", name, KOVRA_READ));  // a missing file: only its directory is made
    EXPECT_TRUE(PathExists(directory / "RW\\"));
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE));  // creates
    EXPECT_EQ(3u, file.Write("abc", 3));
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE));  // keeps the contents
    EXPECT_EQ(3u, file.GetLength());
    EXPECT_EQ(1, file.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_TRUNCATE));
    EXPECT_EQ(0u, file.GetLength());

    // MkDir makes the parent directory with three results (Access: tests/msvc).
    MakeDirectories(directory / "MK\\EXIST");
    EXPECT_EQ(0, Naming(file, "OC_OPTIONS\\MK\\EXIST\\\\F").MkDir());  // an existing one, named with its backslash
    EXPECT_EQ(1, Naming(file, "OC_OPTIONS\\MK\\A\\B\\F.TXT").MkDir());
    EXPECT_TRUE(PathExists(directory / "MK\\A\\B\\"));
    EXPECT_EQ(-1, Naming(file, "Q:\\\\F", 1).MkDir());  // the root of a drive that doesn't exist
}

// Each failed attempt traces a line: a sharing violation is retried once, with flag 2 while it lasts.
TEST(OpenClose, SharingModesBetweenTwoObjectsAndTheRetryOfAViolation)
{
    ScratchDirectory directory(kBase + "OC_SHARE");
    const std::string path = directory / "F.TXT";
    WriteFileBytes(path, "x");
    const char* name = "OC_SHARE\\F.TXT";
    CKovra holder, other;
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE | KOVRA_DENY_WRITE));
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_READ));
    EXPECT_EQ("0 11", AnswerAndCause(other.Open("T_BASE", name, KOVRA_READWRITE), other));
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READ | KOVRA_DENY_WRITE | KOVRA_EXCLUSIVE));

    MonitorProgram monitor;
    CKovra::SetDebugLevel(1);
    const std::string violation = "Kovra : Exception : Datei(" + path +
                                  ") Cause(11) Msg(A sharing violation occurred while accessing " + path + ".)";
    EXPECT_EQ(0, other.Open("T_BASE", name, KOVRA_READ));  // 32 wins over 16
    ASSERT_TRUE(monitor.WaitForLines(2));
    EXPECT_EQ(Lines(2, violation), monitor.Texts());
    std::thread release([&] {  // once three more attempts have been traced
        monitor.WaitForLines(5);
        holder.Close();
    });
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_READ, nullptr, 2));
    release.join();
    const Lines texts = monitor.Texts();  // five lines at least, each the violation's
    EXPECT_EQ(Lines(std::max<size_t>(texts.size(), 5), violation), texts);
    ASSERT_EQ(1, holder.Open("T_BASE", name, KOVRA_READWRITE));  // without 16 and 32 nothing is denied
    EXPECT_EQ(1, other.Open("T_BASE", name, KOVRA_APPEND));
}

TEST(OpenClose, TemporaryFilesAreNamedKeptAndRemoved)
{
    CKovra file;
    EXPECT_EQ(1, file.Open("T_BASE", nullptr, KOVRA_READWRITE));
    const std::string path = file.GetRealFileName(), process = std::to_string(::GetCurrentProcessId());
    // Named by the local time from the year to the millisecond and a number from 1.
    const std::regex pattern(KOVRA_TEST_DRIVE R"(:\\APP\\DAT\\WS1\\TMP\\CKV_)" + process + R"(_\d{15}_1\.TMP)");
    EXPECT_TRUE(std::regex_match(path, pattern)) << path;
    file.Write("tmp", 3);
    EXPECT_EQ(1, file.Close(1));  // kept, it serves the next Open without a name; Close removes it
    EXPECT_EQ(1, file.Open(nullptr, nullptr, KOVRA_READ));
    EXPECT_EQ(path + " 3", Joined(file.GetRealFileName(), file.GetLength()));
    EXPECT_EQ(1, file.Close());
    EXPECT_FALSE(PathExists(path));
    // A client's temporary directory of 252 characters has no room for the name: none is made.
    const std::string client(220, 'c');
    CKovra::SetClient(client.c_str());
    EXPECT_EQ(0, file.Open("T_BASE", nullptr, KOVRA_READWRITE));
    EXPECT_STREQ("", file.GetRealFileName());
    EXPECT_FALSE(PathExists(kBase + "CLIENTS\\" + client));
}

// Steps: Lsize ReadString, Rcount Read, Soffset Seek from the current position, =offset Seek from the start,
// Wtext Write, Tlength SetLength, P GetPosition. The results of each step but =, each ended by a line end; ReadString's
// as "result|text|length|position after it", Read's with the bytes of the whole buffer.
std::string RunSteps(CKovra& file, const std::string& steps)
{
    std::string results;
    std::istringstream stream(steps);
    for (std::string step; stream >> step;) {
        const std::string argument = step.substr(1);
        const long number = std::atol(argument.c_str());
        std::string buffer(std::max(number, 0L), '#');  // its NUL behind it ends a text that ReadString leaves open
        unsigned int length = 99;
        switch (step[0]) {
        case 'L':
            results += std::to_string(file.ReadString(&buffer[0], number, &length)) + "|";
            results += buffer.c_str() + ("|" + std::to_string(length)) + "|" + std::to_string(file.GetPosition());
            break;
        case 'R': results += std::to_string(file.Read(&buffer[0], number)) + "|" + buffer; break;
        case 'S': results += std::to_string(file.Seek(number, 1)); break;
        case '=': file = number; continue;
        case 'W': results += std::to_string(file.Write(argument.c_str(), argument.size())); break;
        case 'T': results += std::to_string(file.SetLength(number)); break;
        case 'P': results += std::to_string(file.GetPosition()); break;
        }
        results += "\n";
    }
    return results;
}

TEST(BlockTextIo, AnObjectThatDeniesWritingReadsAheadWhereNoStepCanTell)
{
    ScratchDirectory directory(kBase + "BT_AHEAD");
    std::string bytes;  // 7 KB, beyond one read-ahead: CRs inside lines, a line of 600 bytes across its border
    for (int line = 0; line < 600; ++line)
        bytes += "line " + std::to_string(line) + (line % 7 ? "" : "\rx") + (line == 380 ? std::string(600, 'z') : "") +
                 "\r\n";
    std::string walk = "=3900";  // line by line over the read-ahead's border
    for (int step = 0; step < 60; ++step)
        walk += step % 9 ? " L100 P" : " L50 L3 R2 S-1 P";
    const std::vector<std::string> sequences = {walk, "L100 L100 P R7 L100 S-3 L100 L3 L3 L100 P L0 P",
                                                "L100 W<w> L100 P S3000 L100 P L100 T3043 L100 L100 P L100",
                                                "=4090 L100 P L1000 L40 L40 P =0 L100 S4100 L100 P"};
    // The results of the steps on the file opened with options, then the file's bytes.
    auto run = [&](unsigned long options, const std::string& steps) {
        WriteFileBytes(directory / "F.TXT", bytes);
        CKovra file("T_BASE", "BT_AHEAD\\F.TXT", options);
        const std::string results = RunSteps(file, steps);
        file.Close();
        return results + ReadFileBytes(directory / "F.TXT");
    };
    const unsigned long optionSets[] = {KOVRA_READWRITE, KOVRA_READWRITE | KOVRA_TEXT, KOVRA_APPEND | KOVRA_TEXT};
    for (unsigned long options : optionSets)
        for (const std::string& steps : sequences)
            EXPECT_EQ(run(options, steps), run(options | (options & KOVRA_APPEND ? KOVRA_EXCLUSIVE : KOVRA_DENY_WRITE),
                                               steps)) << options << ": " << steps;
}

TEST(BlockTextIo, TextModeReadsDropCarriageReturnsWritesAddThemAppendModeWritesAtTheEndAndFailures)
{
    ScratchDirectory directory(kBase + "BT");
    // ReadString reads 512-byte blocks: the b line's CR LF and c line's LF end blocks, the d line spans two.
    const Lines lines = {std::string(508, 'a'), std::string(511, 'b'), std::string(510, 'c'),
                         std::string(700, 'd'), "", "tail"};
    std::string bytes, read;  // the file read (later the file written), and what reading it line by line gives
    for (const std::string& line : lines) {
        const bool last = &line == &lines.back();
        bytes += line + (last ? "" : "\r\n");
        read += (last ? "0|" : "1|") + line + "|" + std::to_string(line.size()) + "|" + std::to_string(bytes.size()) +
                "\n";
    }
    WriteFileBytes(directory / "LINES.TXT", bytes);
    CKovra file("T_BASE", "BT\\LINES.TXT", KOVRA_READ | KOVRA_TEXT);
    EXPECT_EQ(std::string("5|aa\nbb\0\n", 9), RunSteps(file, "=506 R6"));  // the dropped CR's place cleared
    EXPECT_EQ(read + "0||0|2243\n", RunSteps(file, "=0 L1000 L1000 L1000 L1000 L1000 L1000 L1000"));
    // The rest of the d line in pieces of the buffer's size.
    EXPECT_EQ("1|" + std::string(256, 'd') + "|256|2047\n1|" + std::string(188, 'd') + "|188|2237\n",
              RunSteps(file, "=1791 L256 L256"));
    ASSERT_EQ(1, file.Open("T_BASE", "BT\\LINES.TXT", KOVRA_READ));  // without the text option
    EXPECT_EQ("1|" + lines[1] + "\r\n|513|1023\n", RunSteps(file, "=510 L1000"));

    ASSERT_EQ(1, file.Open("T_BASE", "BT\\F.TXT", KOVRA_READWRITE | KOVRA_TEXT));
    EXPECT_EQ(5u, file.WriteString("abc"));     // a line end of its own
    EXPECT_EQ(3u, file.WriteString("abc", 1));  // flags 1: none
    EXPECT_EQ(4u, file.WriteString("a\nb"));    // a text with a line feed gets none
    EXPECT_EQ(3u, file.Write("\nz\n", 3));      // Write answers with the count it was given
    EXPECT_EQ(2u, file.Write("hello\n", 2));    // ... but the text runs to its NUL
    EXPECT_EQ(4u, file.Write("a\0b\n", 4));
    EXPECT_EQ(2u, file.Write("\n\n", 2, 1));    // flags 1: raw
    // Printf formats into a buffer of 1024 bytes first, then into one of the text's size: a text of 1024
    // characters takes the second road whole.
    const std::string longText(1019, 'y');
    EXPECT_EQ(1u, file.Write((longText + "\n").c_str(), 1));  // beyond the translation's fixed buffer
    EXPECT_EQ(1026u, file.Printf(0, "%d\n%s%d\n", 5, longText.c_str(), 42));
    // A block without a NUL ends where the readable memory ends: here with its page of 4 KB.
    char* page = static_cast<char*>(::VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READWRITE));
    ASSERT_NE(nullptr, page);
    std::memset(page, 'q', 4096);
    EXPECT_EQ(1u, file.Write(page + 4096 - 3, 1));
    ::VirtualFree(page, 0, MEM_RELEASE);
    bytes = "abc\r\nabca\r\nb\r\nz\r\nhello\r\na\n\n" + longText + "\r\n5\r\n" + longText + "42\r\nqqq";
    // Without the text option nothing is translated; in append mode every write goes to the end.
    ASSERT_EQ(1, file.Open("T_BASE", "BT\\F.TXT", KOVRA_APPEND));
    file.Seek(1, 0);
    EXPECT_EQ(3u, file.WriteString("a\nb"));
    file.Seek(0, 0);
    EXPECT_EQ(2u, file.Printf(0, "%d\n", 5));
    EXPECT_EQ(bytes.size() + 5, file.GetPosition());
    file.Close();
    EXPECT_EQ(bytes + "a\nb5\n", ReadFileBytes(directory / "F.TXT"));

    // Failures without write access and after a failed open.
    WriteFileBytes(directory / "R.TXT", "123");
    ASSERT_EQ(1, file.Open("T_BASE", "BT\\R.TXT", KOVRA_READ));
    EXPECT_EQ(0u, file.WriteString("ab"));
    EXPECT_EQ("0 0", AnswerAndCause(file.SetLength(1), file));  // refused before the platform is asked
    EXPECT_EQ("0 5", AnswerAndCause(file.Flush(), file));       // asked: it refuses a handle without write access
    EXPECT_EQ("123", ReadFileBytes(directory / "R.TXT"));
    // After a failed open the platform answers that no file is open.
    EXPECT_EQ("0 2", AnswerAndCause(file.Open("T_BASE", "BT\\NONE.TXT", KOVRA_READ | KOVRA_TEXT), file));
    char buffer[4] = "xyz";
    EXPECT_EQ("0 6", AnswerAndCause(file.ReadString(buffer, 3), file));
    EXPECT_STREQ("", buffer);
}

TEST(PositionLockTime, SeekTheOperatorsTheLengthTimeStampsBySelectorAndLockedRanges)
{
    ScratchDirectory directory(kBase + "PL_SEEK");
    CKovra file("T_BASE", "PL_SEEK\\F.TXT", KOVRA_READWRITE);
    EXPECT_EQ("-1 9", AnswerAndCause(file.Seek(-11, 2), file));  // before the start (the operators: tests/msvc)
    // SetLength leaves the position at the new end, as the platform's file class does.
    EXPECT_EQ("10\n6\n1\n12\n", RunSteps(file, "W0123456789 S-4 T12 P"));
    // Positions cross as 32 bits: past 2 GiB whole as unsigned values, negative as Seek's long.
    EXPECT_EQ(1, file.SetLength(0xC0000000ul));
    EXPECT_EQ(0xC0000000ul, file.GetLength());
    EXPECT_EQ(-1073741825L, file.Seek(-1, 2));
    EXPECT_EQ(0xBFFFFFFFul, file.GetPosition());
    EXPECT_EQ(1, file.SetLength(5));
    file.Close();  // the length of the file under the name
    EXPECT_EQ(5ul, file.GetLength());

    // Time stamps by selector: seconds past 2038 need all 64 bits, on the 32-bit build too.
    ASSERT_EQ(1, file.Open("T_BASE", "PL_SEEK\\T.TXT", KOVRA_READWRITE));  // open or not, reached by the name
    const ATL::CTime written(4102444800), created(1000000000);  // 2100-01-01 00:00 UTC, 2001
    EXPECT_EQ(1, file.SetModificationTime(&written, 0));
    EXPECT_EQ(1, file.SetModificationTime(&created, 1));  // leaves the last write alone
    file.Close();
    struct _stat64 status = {};  // its st_ctime is the creation time (wine keeps none of its own)
    ASSERT_EQ(0, _stat64((directory / "T.TXT").c_str(), &status));
    EXPECT_EQ(4102444800, status.st_mtime);
    ATL::CTime time;
    EXPECT_EQ(1, file.GetModificationTime(&time, 0));
    EXPECT_EQ(4102444800, time.GetTime());
    EXPECT_EQ(1, file.GetModificationTime(&time, 1));
    EXPECT_EQ(status.st_ctime, time.GetTime());

    // Locked ranges conflict with other objects (the platform locks by handle, another process's alike).
    CKovra first("T_BASE", "PL_SEEK\\F.TXT", KOVRA_READWRITE), second("T_BASE", "PL_SEEK\\F.TXT", KOVRA_READWRITE);
    EXPECT_EQ(1, first.Lock(0, 10));
    EXPECT_EQ("0 12", AnswerAndCause(second.Lock(5, 10), second));
    EXPECT_EQ(1, second.Lock(10, 5));  // the neighbouring range is free
    EXPECT_EQ(1, first.UnLock(0, 10));
    EXPECT_EQ("0 12", AnswerAndCause(first.UnLock(0, 10), first));  // no longer locked
    EXPECT_EQ(1, second.Lock(0, 10));
}

// What the profile members read and write beyond the randomized run's round trips.
TEST(Profile, NumbersAreWrittenAsDecimalTextAndReadersParseWhatIsThereOrGiveTheDefault)
{
    ScratchDirectory directory(kBase + "PR_WRITE");
    CKovra profile("T_BASE", "PR_WRITE\\P.INI", KOVRA_RESOLVE_ONLY);
    EXPECT_TRUE(profile.WriteProfile("S", "LONG", -5L) && profile.WriteProfile("S", "ULONG", 4000000000UL) &&
                profile.WriteProfile("S", "DOUBLE", -0.25));
    EXPECT_EQ("[S]\r\nLONG=-5\r\nULONG=4000000000\r\nDOUBLE=-0.250000\r\n", ReadFileBytes(directory / "P.INI"));
    CKovra unnamed;  // without a resolved name there is no profile file
    char text[3] = "xy";  // the default, cut to the buffer, as for a missing key
    EXPECT_EQ("0 7 2 df", Joined(unnamed.WriteProfile("S", "K", 5L), unnamed.GetProfile("S", "K", 7L),
                                 unnamed.GetProfile("S", "K", "dflt", text, sizeof text), text));

    // Readers parse what is there or give the default. 127 characters read 12 (all 200: 1.2e74).
    const std::string cut = std::string(125, '0') + "12" + std::string(73, '3');
    WriteFileBytes(directory / "R.INI",
                   "[S]\r\nEMPTY=\r\nABC=abc\r\nMINUS=-1\r\nCUT=" + cut + "\r\n[T]\r\nA=1\r\nB=22\r\n");
    ASSERT_EQ(1, profile.Open("T_BASE", "PR_WRITE\\R.INI", KOVRA_RESOLVE_ONLY));
    auto value = [&profile](const char* key, auto fallback) { return profile.GetProfile("S", key, fallback); };
    EXPECT_EQ("7 8 0 4294967295 12 12", Joined(value("MISSING", 7L), value("EMPTY", 8U), value("ABC", 7L),
                                               value("MINUS", 7UL), value("CUT", 7L), value("CUT", 7.0)));
    char buffer[32];
    EXPECT_EQ("4 dflt", Joined(profile.GetProfile("S", "MISSING", "dflt", buffer, sizeof buffer), buffer));
    EXPECT_EQ("0 ", Joined(profile.GetProfile("S", "EMPTY", "dflt", buffer, sizeof buffer), buffer));
    EXPECT_EQ(1, profile.GetProfileSectionA("T", buffer, sizeof buffer));
    EXPECT_EQ(std::string("A=1\0B=22\0\0", 10), std::string(buffer, 10));
    EXPECT_EQ(0, profile.GetProfileSectionA("NOSECTION", buffer, sizeof buffer));
}

// What the C interface adds to the members (main road, Printf and the sizes of ReadString's and GetLastError's
// buffers: tests/msvc; null handles: BadInput): the operators' results, names with date fields in place in a buffer
// of a given size.
TEST(CInterface, OperatorsResultsDateFieldsInPlaceAndBuffersOfAGivenSize)
{
    ScratchDirectory directory(kBase + "CI");
    KovraFile* file = KovraFile_Create("T_BASE", "CI\\F.TXT", KOVRA_READWRITE | KOVRA_TEXT, nullptr, 0);
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(file,
              KovraFile_OperatorSubtractAssign(KovraFile_OperatorAddAssign(KovraFile_OperatorAssign(file, 1), 3), 2));
    EXPECT_EQ(2UL, KovraFile_GetPosition(file, 0));
    char name[260] = "D%y%M%D.TXT", realFileName[260] = "";  // date fields keeping the length: in place
    EXPECT_EQ(1, KovraFile_BuildFileName(file, "T_BASE", name, realFileName, sizeof realFileName, 0));
    EXPECT_EQ("D" + CurrentUtcDate("%y%m%d") + ".TXT", std::string(name));
    EXPECT_EQ(kBase + name, std::string(realFileName));
    char text[8];  // the buffer takes its size with the NUL: a longer path is cut and terminated
    EXPECT_EQ("0 " + kBase.substr(0, 7),
              Joined(KovraFile_BuildFileName(file, "T_BASE", name, text, sizeof text, 0), text));
    KovraFile_Destroy(file);
}

} // namespace
