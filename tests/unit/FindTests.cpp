// Listing the entries that match a pattern in a file type's directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

const std::string kBase = KOVRA_TEST_DRIVE ":\\APP\\";

// FIND\A.TXT (5 bytes), B.TXT, C.TXT, D.DAT, a hidden H.DAT and SUB\F.TXT below the base.
class Find : public ::testing::Test {
protected:
    void SetUp() override
    {
        WriteFileBytes(m_directory / "A.TXT", "12345");
        WriteFileBytes(m_directory / "B.TXT", "");
        WriteFileBytes(m_directory / "C.TXT", "abc");
        WriteFileBytes(m_directory / "D.DAT", "d");
        WriteFileBytes(m_directory / "H.DAT", "h");
        ::SetFileAttributesA((m_directory / "H.DAT").c_str(), FILE_ATTRIBUTE_HIDDEN);
        WriteFileBytes(m_directory / "SUB\\F.TXT", "f");
    }

    // The names of the entries still to come, in order.
    std::vector<std::string> Names()
    {
        std::vector<std::string> names;
        while (m_find.FindNextFileA())
            names.push_back(m_find.GetFileName());
        return names;
    }

    std::vector<std::string> SortedNames()
    {
        std::vector<std::string> names = Names();
        std::sort(names.begin(), names.end());
        return names;
    }

    ScratchDirectory m_directory{kBase + "FIND"};
    CKovraFind m_find;
};

TEST_F(Find, EachMatchIsMadeCurrentOnceAndThenTheListingEnds)
{
    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\*.TXT"));
    EXPECT_EQ((std::vector<std::string>{"A.TXT", "B.TXT", "C.TXT"}), SortedNames());
    EXPECT_EQ(0, m_find.FindNextFileA());

    EXPECT_EQ(0, m_find.FindFile("T_BASE", "FIND\\*.XYZ"));
    EXPECT_EQ(0, m_find.FindNextFileA());
    EXPECT_EQ(0, m_find.FindFile("NOPE", "FIND\\*.TXT"));
    EXPECT_EQ(0, m_find.FindNextFileA());

    // Close ends a listing half-way; the next FindFile starts afresh.
    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\*.DAT"));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_EQ(1, m_find.Close());
    EXPECT_EQ(0, m_find.FindNextFileA());
    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\*.DAT"));
    EXPECT_EQ((std::vector<std::string>{"D.DAT", "H.DAT"}), SortedNames());
}

TEST_F(Find, TheCurrentEntryIsDescribed)
{
    CKovraFind unused;
    EXPECT_STREQ("", unused.GetFileName());
    EXPECT_EQ(0ul, unused.GetLength());

    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\A.TXT"));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_STREQ("A.TXT", m_find.GetFileName());
    EXPECT_EQ(m_directory / "A.TXT", m_find.GetFilePath());
    EXPECT_EQ(5ul, m_find.GetLength());
    EXPECT_EQ(0, m_find.IsDirectory());
    EXPECT_EQ(0, m_find.IsHidden());
    EXPECT_EQ(0, m_find.IsDots());
    EXPECT_EQ(0, m_find.FindNextFileA());

    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\H.DAT"));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_EQ(1, m_find.IsHidden());
    EXPECT_EQ(0, m_find.IsDirectory());

    ASSERT_NE(0, m_find.FindFile("T_BASE", "FIND\\SUB"));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_STREQ("SUB", m_find.GetFileName());
    EXPECT_EQ(1, m_find.IsDirectory());
    EXPECT_EQ(0, m_find.IsHidden());
    EXPECT_EQ(0, m_find.IsDots());
}

TEST_F(Find, WithoutAPatternEverythingIsListedDotsIncluded)
{
    ASSERT_EQ(1, CKovra::SetModulePath((kBase + "FIND").c_str()));
    ASSERT_NE(0, m_find.FindFile("T_MODULE", nullptr));
    std::vector<std::string> dots;
    std::vector<std::string> others;
    while (m_find.FindNextFileA()) {
        if (m_find.IsDots()) {
            EXPECT_EQ(1, m_find.IsDirectory());
            dots.push_back(m_find.GetFileName());
        } else {
            others.push_back(m_find.GetFileName());
        }
    }
    std::sort(dots.begin(), dots.end());
    std::sort(others.begin(), others.end());
    EXPECT_EQ((std::vector<std::string>{".", ".."}), dots);
    EXPECT_EQ((std::vector<std::string>{"A.TXT", "B.TXT", "C.TXT", "D.DAT", "H.DAT", "SUB"}), others);
}

TEST_F(Find, PathsRelativeToTheTypesDirectory)
{
    ASSERT_EQ(1, CKovra::SetModulePath((kBase + "FIND").c_str()));
    ASSERT_NE(0, m_find.FindFile("T_MODULE", "SUB\\*.TXT"));
    ASSERT_NE(0, m_find.FindNextFileA());
    char* relative = m_find.GetFilePathRelative();
    EXPECT_STREQ("SUB\\F.TXT", relative);
    char* full = m_find.GetFilePath();
    EXPECT_EQ(m_directory / "SUB\\F.TXT", full);
    EXPECT_EQ(full + (m_directory.Path().size()), relative);  // one buffer for both

    // A literal pattern is searched as DFT, whose directory is the base.
    ASSERT_NE(0, m_find.FindFile(nullptr, (m_directory / "SUB\\*.TXT").c_str(), 1));
    ASSERT_NE(0, m_find.FindNextFileA());
    EXPECT_STREQ("FIND\\SUB\\F.TXT", m_find.GetFilePathRelative());
}

} // namespace
