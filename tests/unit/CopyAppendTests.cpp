// Copying an object's file to another (type, name) and appending it to another file.
#include <gtest/gtest.h>

#include <string>

#include "FileChecks.h"
#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";
const std::string kReadOnlyBase = "R:\\RO\\APP\\";  // T_BASEREADONLY's directory

// Bytes that show where a block boundary of a copy went wrong.
std::string Pattern(size_t size)
{
    std::string bytes(size, '\0');
    for (size_t index = 0; index < size; ++index)
        bytes[index] = static_cast<char>('A' + index % 23);
    return bytes;
}

TEST(CopyFile, CopiesToTheDestinationOfTheObjectsTypeOrOfDft)
{
    ScratchDirectory readOnlyArea(kReadOnlyBase + "COPY");
    ScratchDirectory directory(kBase + "COPY");
    CKovra file("T_BASEREADONLY", "COPY\\F.TXT", KOVRA_READWRITE);
    ASSERT_EQ(4u, file.Write("data", 4));

    // The object's own type, and the destination's directories made.
    EXPECT_EQ(1, file.CopyFileA(nullptr, "COPY\\A\\B\\OWN.TXT", 0));
    EXPECT_EQ("data", ReadFileBytes(readOnlyArea / "A\\B\\OWN.TXT"));
    EXPECT_EQ(1, file.IsOpen());

    // Without a type of its own the object copies as DFT.
    file.Close();
    EXPECT_EQ(1, file.CopyFileA(nullptr, "COPY\\DFT.TXT", 0));
    EXPECT_EQ("data", ReadFileBytes(directory / "DFT.TXT"));

    // The type given, or with flags 1 a path as it stands.
    EXPECT_EQ(1, file.CopyFileA("T_BASE", "COPY\\GIVEN.TXT", 0));
    EXPECT_EQ("data", ReadFileBytes(directory / "GIVEN.TXT"));
    EXPECT_EQ(1, file.CopyFileA(nullptr, (directory / "LITERAL.TXT").c_str(), 0, 1));
    EXPECT_EQ("data", ReadFileBytes(directory / "LITERAL.TXT"));
    EXPECT_EQ(0, CauseOf(file));
}

TEST(CopyFile, AnExistingDestinationIsKeptOnlyWhenAsked)
{
    ScratchDirectory directory(kBase + "COPY_EXIST");
    WriteFileBytes(directory / "DST.TXT", "old");
    CKovra file("T_BASE", "COPY_EXIST\\F.TXT", KOVRA_READWRITE);
    file.Write("new", 3);
    EXPECT_EQ(0, file.CopyFileA(nullptr, "COPY_EXIST\\DST.TXT", 1));
    EXPECT_EQ("old", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(1, file.CopyFileA(nullptr, "COPY_EXIST\\DST.TXT", 0));
    EXPECT_EQ("new", ReadFileBytes(directory / "DST.TXT"));

    // An unknown type gives no destination: nothing is made, and the error tells why.
    EXPECT_EQ(0, file.CopyFileA("NOPE", "COPY_EXIST\\NEW\\DST.TXT", 0));
    EXPECT_EQ(-1, CauseOf(file));
    EXPECT_FALSE(PathExists(directory / "NEW"));

    // A missing source.
    file.Open("T_BASE", "COPY_EXIST\\MISSING.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.CopyFileA(nullptr, "COPY_EXIST\\OTHER.TXT", 0));
    EXPECT_FALSE(PathExists(directory / "OTHER.TXT"));
}

TEST(AppendFile, AnOpenObjectIsCopiedWholeAndLeftAtItsEnd)
{
    ScratchDirectory directory(kBase + "APPEND_OPEN");
    const std::string source = Pattern(20000);  // more than two blocks
    WriteFileBytes(directory / "SRC.TXT", source);
    WriteFileBytes(directory / "DST.TXT", "head:");
    CKovra file("T_BASE", "APPEND_OPEN\\SRC.TXT", KOVRA_READ);
    ASSERT_EQ(7, file.Seek(7, 0));
    EXPECT_EQ(1, file.AppendFile("T_BASE", "APPEND_OPEN\\DST.TXT"));
    EXPECT_EQ("head:" + source, ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(1, file.IsOpen());
    EXPECT_EQ(20000ul, file.GetPosition());

    // Written data is flushed before it is copied.
    CKovra writer("T_BASE", "APPEND_OPEN\\NEW.TXT", KOVRA_READWRITE);
    writer.Write("xyz", 3);
    EXPECT_EQ(1, writer.AppendFile(nullptr, "APPEND_OPEN\\DST.TXT"));
    EXPECT_EQ("head:" + source + "xyz", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(3ul, writer.GetPosition());
}

TEST(AppendFile, AClosedObjectIsOpenedForTheCopyAndLeftClosed)
{
    ScratchDirectory directory(kBase + "APPEND_CLOSED");
    WriteFileBytes(directory / "SRC.TXT", "abc");
    WriteFileBytes(directory / "DST.TXT", "12");
    CKovra file("T_BASE", "APPEND_CLOSED\\SRC.TXT");
    EXPECT_EQ(1, file.AppendFile("T_BASE", "APPEND_CLOSED\\DST.TXT"));
    EXPECT_EQ("12abc", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(0, file.IsOpen());

    // An empty source appends nothing but still makes a missing destination.
    WriteFileBytes(directory / "EMPTY.TXT", "");
    file.Open("T_BASE", "APPEND_CLOSED\\EMPTY.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.AppendFile("T_BASE", "APPEND_CLOSED\\DST.TXT"));
    EXPECT_EQ("12abc", ReadFileBytes(directory / "DST.TXT"));
    EXPECT_EQ(1, file.AppendFile("T_BASE", "APPEND_CLOSED\\SUB\\MADE.TXT"));
    EXPECT_TRUE(PathExists(directory / "SUB\\MADE.TXT"));
    EXPECT_EQ("", ReadFileBytes(directory / "SUB\\MADE.TXT"));

    // A missing source fails after the destination was made; an unknown destination type fails at once.
    file.Open("T_BASE", "APPEND_CLOSED\\MISSING.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.AppendFile("T_BASE", "APPEND_CLOSED\\FROM_MISSING.TXT"));
    EXPECT_TRUE(PathExists(directory / "FROM_MISSING.TXT"));
    file.Open("T_BASE", "APPEND_CLOSED\\SRC.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.AppendFile("NOPE", "APPEND_CLOSED\\DST.TXT"));
    EXPECT_EQ("12abc", ReadFileBytes(directory / "DST.TXT"));
}

} // namespace
