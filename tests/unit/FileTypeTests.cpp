// The shared file-type table and the settings members.
#include <gtest/gtest.h>

#include <string>

#include "kovra/diag.h"
#include "kovra/kovra.h"

namespace {

int TypeCount()
{
    FileType_S record;
    int count = 0;
    while (KovraGetFileType(count, &record))
        ++count;
    return count;
}

// The record of a type, or one with location -1 when the table doesn't hold it.
FileType_S TypeRecord(const std::string& name)
{
    FileType_S record;
    for (int index = 0; KovraGetFileType(index, &record); ++index)
        if (name == record.name)
            return record;
    return FileType_S{{}, -1, -1};
}

TEST(FileTypes, TheConfigurationFilledTheTableInOrder)
{
    FileType_S record;
    ASSERT_EQ(1, KovraGetFileType(0, &record));
    EXPECT_STREQ("DFT", record.name);
    EXPECT_EQ(1, record.location);
    EXPECT_EQ(1, record.encryption);
    ASSERT_EQ(1, KovraGetFileType(1, &record));
    EXPECT_STREQ("XWS", record.name);
    EXPECT_EQ(3, record.location);
    EXPECT_EQ(11, TypeRecord("T_MODULEREADONLY").location);
    EXPECT_EQ(12, TypeCount());
}

TEST(FileTypes, NamesAreCaseSensitiveAndChangedInPlace)
{
    const int before = TypeCount();
    EXPECT_EQ(1, CKovra::AddFileType("abc", 2, 1));
    EXPECT_EQ(1, CKovra::AddFileType("ABC", 6, 1));
    EXPECT_EQ(before + 2, TypeCount());
    EXPECT_EQ(2, TypeRecord("abc").location);
    EXPECT_EQ(6, TypeRecord("ABC").location);

    EXPECT_EQ(1, CKovra::AddFileType("abc", 9, 7));  // values are stored as given
    EXPECT_EQ(before + 2, TypeCount());
    EXPECT_EQ(9, TypeRecord("abc").location);
    EXPECT_EQ(7, TypeRecord("abc").encryption);

    // A type resolves with its new location at once.
    CKovra file;
    EXPECT_STREQ(KOVRA_TEST_DRIVE ":\\APP\\F.TXT", file.GetRealFileName("abc", "F.TXT"));
}

TEST(FileTypes, TheTableHoldsAtMost1489TypesOfAtMost35Characters)
{
    const std::string longest(35, 'n');
    EXPECT_EQ(1, CKovra::AddFileType(longest.c_str(), 2, 1));
    EXPECT_EQ(2, TypeRecord(longest).location);
    // A longer name would be cut into another type's name: it is refused.
    EXPECT_EQ(0, CKovra::AddFileType((longest + "n").c_str(), 2, 1));
    EXPECT_EQ(-1, TypeRecord(longest + "n").location);
    EXPECT_EQ(0, CKovra::AddFileType(nullptr, 2, 1));
    EXPECT_EQ(0, CKovra::AddFileType("", 2, 1));

    for (int index = TypeCount(); index < 1489; ++index)
        ASSERT_EQ(1, CKovra::AddFileType(("TYPE" + std::to_string(index)).c_str(), 2, 1));
    EXPECT_EQ(1489, TypeCount());
    EXPECT_EQ(1, CKovra::AddFileType("ONE_TOO_MANY", 2, 1));
    EXPECT_EQ(1489, TypeCount());
    EXPECT_EQ(-1, TypeRecord("ONE_TOO_MANY").location);

    // A full table still changes the types it holds.
    EXPECT_EQ(1, CKovra::AddFileType("TYPE1000", 4, 1));
    EXPECT_EQ(4, TypeRecord("TYPE1000").location);
    CKovra file;
    EXPECT_EQ(0, file.Open("ONE_TOO_MANY", "F.TXT", 0));
}

TEST(Settings, DebugLevelAndOptionReturnWhatTheyReplace)
{
    EXPECT_EQ(0, CKovra::SetDebugLevel(5));
    EXPECT_EQ(5, CKovra::SetDebugLevel(1));
    KovraSettings_S settings;
    KovraGetSettings(&settings);
    EXPECT_EQ(1, settings.debugLevel);
    EXPECT_EQ(32, settings.option);

    EXPECT_EQ(1, CKovra::SetOption(1, 7));
    KovraGetSettings(&settings);
    EXPECT_EQ(1, settings.skipProcessSession);
    EXPECT_EQ(0, CKovra::SetOption(2, 1));
    EXPECT_EQ(0, CKovra::SetOption(0, 1));
    KovraGetSettings(&settings);
    EXPECT_EQ(1, settings.skipProcessSession);
    EXPECT_EQ(32, settings.option);  // the option word only comes from the configuration
    EXPECT_EQ(1, CKovra::SetOption(1, 0));
    KovraGetSettings(&settings);
    EXPECT_EQ(0, settings.skipProcessSession);
}

} // namespace
