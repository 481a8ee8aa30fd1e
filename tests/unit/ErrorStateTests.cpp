// The error state of a file object: what GetLastError reports, how it copies the message,
// the order of a pending cause and a pending error, and IsDirectory.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// A failed read of a missing file in folder, recorded in file; the path it failed on.
std::string FailToRead(CKovra& file, const std::string& folder)
{
    const std::string name = folder + "\\MISSING.TXT";
    EXPECT_EQ(0, file.Open("T_BASE", name.c_str(), KOVRA_READ));
    return kBase + name;
}

TEST(ErrorState, AFailureIsReportedOnceWithItsCauseAndMessage)
{
    ScratchDirectory directory(kBase + "ERR_ONCE");
    CKovra file;
    const std::string missing = FailToRead(file, "ERR_ONCE");
    int cause = 0;
    char message[256];
    std::memset(message, '#', sizeof message);
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(2, cause);
    EXPECT_EQ(missing + " was not found.", message);

    // Nothing pending: 0, and the out-arguments stay as they were.
    cause = 77;
    std::strcpy(message, "old");
    EXPECT_EQ(0, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(77, cause);
    EXPECT_STREQ("old", message);

    // A later success leaves the failure pending; either pointer alone will take it.
    FailToRead(file, "ERR_ONCE");
    EXPECT_EQ(1, file.Open("T_BASE", "ERR_ONCE\\NEW.TXT", KOVRA_READWRITE));
    EXPECT_EQ(1, file.GetLastError(nullptr, message, sizeof message));
    EXPECT_EQ(missing + " was not found.", message);
    FailToRead(file, "ERR_ONCE");
    EXPECT_EQ(1, file.GetLastError(&cause));
    EXPECT_EQ(2, cause);
    FailToRead(file, "ERR_ONCE");
    EXPECT_EQ(1, file.GetLastError());  // no box: the configuration holds boxes back
    EXPECT_EQ(0, file.GetLastError(&cause));
}

TEST(ErrorState, TheMessageIsCopiedLikeABoundedStringCopy)
{
    ScratchDirectory directory(kBase + "ERR_COPY");
    CKovra file;
    const std::string text = FailToRead(file, "ERR_COPY") + " was not found.";
    int cause = 0;
    char message[64];
    std::memset(message, '#', sizeof message);
    EXPECT_EQ(1, file.GetLastError(&cause, message, 5));
    EXPECT_EQ(text.substr(0, 5) + std::string(59, '#'), std::string(message, sizeof message));  // no NUL

    FailToRead(file, "ERR_COPY");
    std::memset(message, '#', sizeof message);
    EXPECT_EQ(1, file.GetLastError(nullptr, message, 60));
    EXPECT_EQ(text + std::string(60 - text.size(), '\0') + "####", std::string(message, sizeof message));

    FailToRead(file, "ERR_COPY");
    std::memset(message, '#', sizeof message);
    EXPECT_EQ(1, file.GetLastError(&cause, message, 0));
    EXPECT_EQ(2, cause);
    EXPECT_EQ(std::string(64, '#'), std::string(message, sizeof message));
}

TEST(ErrorState, APendingCauseIsReportedBeforeAPendingError)
{
    ScratchDirectory directory(kBase + "ERR_ORDER");
    CKovra file;
    const std::string missing = FailToRead(file, "ERR_ORDER");
    EXPECT_EQ(0, file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY));
    int cause = 0;
    char message[256] = "";
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(2, cause);
    EXPECT_EQ(missing + " was not found.", message);
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(-1, cause);
    EXPECT_EQ("Kovra : KOVRA_ERROR(NOPE, F.TXT, " + missing + ", -1)", message);
    EXPECT_EQ(0, file.GetLastError(&cause, message, sizeof message));

    // The error's text is cut to the length with its NUL; an absent type shows as "".
    file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY);
    std::memset(message, '#', sizeof message);
    EXPECT_EQ(1, file.GetLastError(nullptr, message, 10));
    EXPECT_EQ(std::string("Kovra : K\0#", 11), std::string(message, 11));
    file.Open("NOPE", "F.TXT", KOVRA_RESOLVE_ONLY);
    file.Close();
    EXPECT_EQ(1, file.GetLastError(nullptr, message, sizeof message));
    EXPECT_EQ("Kovra : KOVRA_ERROR(, F.TXT, " + missing + ", -1)", message);
}

TEST(ErrorState, AFailureWithoutAFileNameKeepsTheEarlierMessage)
{
    ScratchDirectory directory(kBase + "ERR_NONAME");
    CKovra file;
    const std::string missing = FailToRead(file, "ERR_NONAME");
    char byte = 0;
    EXPECT_EQ(0u, file.Read(&byte, 1));  // the attempted file has no handle
    int cause = 0;
    char message[256] = "";
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(6, cause);
    EXPECT_EQ(missing + " was not found.", message);
}

TEST(ErrorState, OpeningADirectoryForWritingIsDenied)
{
    ScratchDirectory directory(kBase + "ERR_DIR");
    CKovra file;
    EXPECT_EQ(0, file.Open("T_BASE", "ERR_DIR", KOVRA_READWRITE));
    int cause = 0;
    char message[256] = "";
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(5, cause);
    EXPECT_EQ("Access to " + kBase + "ERR_DIR was denied.", message);
}

TEST(ErrorState, IsDirectoryTellsDirectoriesFromFilesAndRecordsNothing)
{
    ScratchDirectory directory(kBase + "ERR_ISDIR");
    WriteFileBytes(directory / "F.TXT", "");
    CKovra file;
    EXPECT_EQ(0, file.IsDirectory());
    file.Open("T_BASE", "ERR_ISDIR", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.IsDirectory());
    file.Open("T_BASE", "ERR_ISDIR\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.IsDirectory());
    file.Open("T_BASE", "ERR_ISDIR\\MISSING", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.IsDirectory());
    int cause = 0;
    EXPECT_EQ(0, file.GetLastError(&cause));
}

} // namespace
