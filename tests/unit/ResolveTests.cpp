// Resolution of (file type, name) to a real path: the location rules with and without a
// client, literal names, trailing backslashes and "\..\", date fields, open parameters,
// and the failures of unknown types and overlong names.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "kovra/kovra.h"

using namespace kovratest;

namespace {

#define DRIVE KOVRA_TEST_DRIVE ":"
const std::string kBase = DRIVE "\\APP\\";

// The real path that a new object resolves (type, name) to.
std::string Resolve(const char* type, const char* name, int flags = 0)
{
    CKovra file;
    file.Open(type, name, KOVRA_RESOLVE_ONLY, nullptr, flags);
    return file.GetRealFileName();
}

void SetUpIdentity()
{
    CKovra::SetModulePath(DRIVE "\\APP\\MOD1");
    CKovra::SetUser("U1");
}

// Gives tests the protected resolver.
class Resolver : public CKovra {
public:
    using CKovra::BuildFileName;
};

TEST(Resolve, EveryLocationWithAndWithoutAClient)
{
    struct Row {
        const char* type;
        const char* withoutClient;
        const char* withClient;
    };
    const Row rows[] = {
        {"DFT", DRIVE "\\APP\\SUB\\F.TXT", DRIVE "\\APP\\SUB\\F.TXT"},
        {"XWS", DRIVE "\\APP\\MOD1\\SUB\\F.TXT", DRIVE "\\APP\\MOD1\\SUB\\F.TXT"},
        {"T_BASE", DRIVE "\\APP\\SUB\\F.TXT", DRIVE "\\APP\\SUB\\F.TXT"},
        {"T_MODULE", DRIVE "\\APP\\MOD1\\SUB\\F.TXT", DRIVE "\\APP\\MOD1\\SUB\\F.TXT"},
        {"T_CLIENT", DRIVE "\\APP\\SUB\\F.TXT", DRIVE "\\APP\\CLIENTS\\C1\\APP\\SUB\\F.TXT"},
        {"T_MODULECLIENT", DRIVE "\\MOD1\\SUB\\F.TXT", DRIVE "\\APP\\CLIENTS\\C1\\MOD1\\SUB\\F.TXT"},
        {"T_USER", DRIVE "\\APP\\USERS\\U1\\F.TXT", DRIVE "\\APP\\CLIENTS\\C1\\USERS\\U1\\F.TXT"},
        {"T_WKSTA", DRIVE "\\APP\\DAT\\WS1\\F.TXT", DRIVE "\\APP\\CLIENTS\\C1\\DAT\\WS1\\F.TXT"},
        {"T_WKSTATMP", DRIVE "\\APP\\DAT\\WS1\\TMP\\F.TXT", DRIVE "\\APP\\CLIENTS\\C1\\DAT\\WS1\\TMP\\F.TXT"},
        {"T_BASEDATA", DRIVE "\\APP\\SUB\\F.TXT", DRIVE "\\APP\\SUB\\F.TXT"},
        {"T_BASEREADONLY", "R:\\RO\\APP\\SUB\\F.TXT", "R:\\RO\\APP\\SUB\\F.TXT"},
        {"T_MODULEREADONLY", "R:\\RO\\MOD1\\SUB\\F.TXT", "R:\\RO\\MOD1\\SUB\\F.TXT"},
    };
    // Before any user is set the user location is the data path itself.
    EXPECT_EQ(kBase + "F.TXT", Resolve("T_USER", "SUB\\F.TXT"));
    SetUpIdentity();
    for (const Row& row : rows)
        EXPECT_EQ(row.withoutClient, Resolve(row.type, "SUB\\F.TXT")) << row.type;
    CKovra::SetClient("C1");
    for (const Row& row : rows)
        EXPECT_EQ(row.withClient, Resolve(row.type, "SUB\\F.TXT")) << row.type;

}

TEST(Resolve, LiteralNamesAreTakenAsTheyAreForKnownTypesOnly)
{
    SetUpIdentity();
    EXPECT_EQ("C:\\DIR\\F.TXT", Resolve("T_USER", "C:\\DIR\\F.TXT"));
    EXPECT_EQ("\\\\SRV\\SHARE\\F.TXT", Resolve("T_WKSTA", "\\\\SRV\\SHARE\\F.TXT"));
    EXPECT_EQ("A:B", Resolve("T_MODULE", "A:B"));
    EXPECT_EQ("REL\\F.TXT", Resolve("T_USER", "REL\\F.TXT", 1));
    EXPECT_EQ("C:\\DIR", Resolve("T_BASE", "C:\\DIR\\"));
    EXPECT_EQ("C:\\F", Resolve("T_BASE", "C:\\DIR\\..\\F"));
    // A single leading backslash is no literal name.
    EXPECT_EQ(kBase + "\\SUB\\F", Resolve("T_BASE", "\\SUB\\F"));
    // A "\..\" with no backslash before it stays.
    EXPECT_EQ("X\\..\\F", Resolve("T_BASE", "X\\..\\F", 1));
    EXPECT_EQ("\\..\\F", Resolve("T_BASE", "\\..\\F", 1));

    CKovra file;
    EXPECT_EQ(0, file.Open("NOPE", "C:\\DIR\\F.TXT", KOVRA_RESOLVE_ONLY, nullptr, 1));
    EXPECT_STREQ("", file.GetRealFileName());
}

TEST(Resolve, TrailingBackslashEmptyNamesAndParentReferences)
{
    EXPECT_EQ(kBase + "SUB", Resolve("T_BASE", "SUB\\"));
    EXPECT_EQ(kBase + "SUB\\", Resolve("T_BASE", "SUB\\\\"));  // one backslash goes
    EXPECT_EQ(DRIVE "\\APP", Resolve("T_BASE", ""));
    EXPECT_EQ(DRIVE "\\APP\\DAT\\WS1\\TMP", Resolve("T_WKSTATMP", ""));

    EXPECT_EQ(kBase + "PRG\\F", Resolve("T_BASE", "DAT\\..\\PRG\\F"));
    EXPECT_EQ(kBase + "B\\..\\F", Resolve("T_BASE", "A\\..\\B\\..\\F"));
    EXPECT_EQ(DRIVE "\\F", Resolve("T_BASE", "..\\F"));
    // Locations that keep only the last part of the name never see the "\..\".
    EXPECT_EQ(DRIVE "\\APP\\DAT\\WS1\\F", Resolve("T_WKSTA", "A\\..\\F"));
}

TEST(Resolve, TypeDefaultsAndTheEmptyType)
{
    SetUpIdentity();
    CKovra file;
    file.Open("", "SUB\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_STREQ(DRIVE "\\APP\\SUB\\F.TXT", file.GetRealFileName());
    EXPECT_STREQ("", file.GetFileType());

    file.Open(nullptr, "SUB\\F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_STREQ("DFT", file.GetFileType());
    EXPECT_STREQ(DRIVE "\\APP\\SUB\\F.TXT", file.GetRealFileName());

    file.Open("T_MODULE", "F.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(1, file.Open(file.GetFileType(), "G.TXT", KOVRA_RESOLVE_ONLY));  // its own type stays
    EXPECT_STREQ("T_MODULE", file.GetFileType());
    EXPECT_STREQ(DRIVE "\\APP\\MOD1\\G.TXT", file.GetRealFileName());
}

TEST(Resolve, OpenParametersReplaceTheLocationWhileTheirStoredSizeIsSet)
{
    SetUpIdentity();
    const std::string base = kBase + "SUB\\F.TXT";
    const std::string module = kBase + "MOD1\\SUB\\F.TXT";
    auto resolve = [](CKovra& file, const char* type, KovraOpenPar_S* parameters) {
        EXPECT_EQ(1, file.Open(type, "SUB\\F.TXT", KOVRA_RESOLVE_ONLY, parameters));
        return std::string(file.GetRealFileName());
    };
    KovraOpenPar_S sizeZero = {0, {}, 3, 0};
    KovraOpenPar_S toModule = {12, {}, 3, 0};
    KovraOpenPar_S sizeOnly = {4, {}, 6, 0};  // the location lies beyond the size
    KovraOpenPar_S toUser = {0, {}, 6, 0};
    KovraOpenPar_S oversized = {100, {}, 10, 0};
    KovraOpenPar_S beyondTheList = {12, {}, 99, 0};
    KovraOpenPar_S negative = {12, {}, -5, 0};

    CKovra file;
    EXPECT_EQ(base, resolve(file, "T_BASE", &sizeZero));
    EXPECT_EQ(module, resolve(file, "T_BASE", &toModule));
    EXPECT_EQ(module, resolve(file, "T_BASE", &toUser));    // nothing taken, the stored ones stay
    EXPECT_EQ(module, resolve(file, "T_BASE", &sizeOnly));  // only the size taken
    EXPECT_EQ(base, resolve(file, "T_BASE", nullptr));      // no parameters clear them
    EXPECT_EQ(base, resolve(file, "T_BASE", &sizeOnly));
    EXPECT_EQ("R:\\RO\\APP\\SUB\\F.TXT", resolve(file, "T_BASE", &oversized));
    EXPECT_EQ(base, resolve(file, "T_MODULE", &beyondTheList));
    EXPECT_EQ(base, resolve(file, "T_MODULE", &negative));
}

TEST(Resolve, DateFieldsBecomeTheCurrentUtcDate)
{
    const std::string date = CurrentUtcDate("%Y%m%d");
    const std::string shortDate = CurrentUtcDate("%y%m%d");
    const std::string day = CurrentUtcDate("%d");
    CKovra file;
    file.Open("T_BASE", "LOG\\%Y%M%D.LOG", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ("LOG\\" + date + ".LOG", std::string(file.GetFileName()));
    EXPECT_EQ(kBase + "LOG\\" + date + ".LOG", file.GetRealFileName());

    file.Open("T_BASE", "%y%M%T", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(shortDate, std::string(file.GetFileName()));
    file.Open("T_BASE", "%D%T_%Y_%Y", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(day + day + "_" + date.substr(0, 4) + "_" + date.substr(0, 4), std::string(file.GetFileName()));
    file.Open("T_BASE", "%d%m%X100%", KOVRA_RESOLVE_ONLY);  // other fields stay
    EXPECT_STREQ("%d%m%X100%", file.GetFileName());

    // BuildFileName rewrites the caller's buffer, but never lets it grow.
    Resolver resolver;
    char sameLength[] = "%M%D.LOG";
    char real[260] = "";
    EXPECT_EQ(1, resolver.BuildFileName("T_BASE", sameLength, real, 0));
    EXPECT_EQ(date.substr(4) + ".LOG", std::string(sameLength));
    EXPECT_EQ(kBase + date.substr(4) + ".LOG", real);
    char growing[] = "%Y.LOG";
    EXPECT_EQ(1, resolver.BuildFileName("T_BASE", growing, real, 0));
    EXPECT_STREQ("%Y.LOG", growing);
    EXPECT_EQ(kBase + date.substr(0, 4) + ".LOG", real);
    char unknown[] = "%M.LOG";
    EXPECT_EQ(0, resolver.BuildFileName("NOPE", unknown, real, 0));
    EXPECT_EQ(date.substr(4, 2) + ".LOG", std::string(unknown));
    EXPECT_EQ(kBase + date.substr(0, 4) + ".LOG", real);  // untouched
}

TEST(Resolve, AnUnknownTypeFailsWithErrorMinusOneAndOpensNothing)
{
    CKovra file;
    EXPECT_EQ(0, file.Open("NOPE", "SUB\\F.TXT", KOVRA_RESOLVE_ONLY));
    EXPECT_STREQ("", file.GetRealFileName());
    EXPECT_STREQ("NOPE", file.GetFileType());
    EXPECT_STREQ("SUB\\F.TXT", file.GetFileName());
    int cause = 0;
    char message[256] = "";
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ(-1, cause);
    EXPECT_STREQ("Kovra : KOVRA_ERROR(NOPE, SUB\\F.TXT, , -1)", message);
    EXPECT_EQ(0, file.GetLastError(&cause, message, sizeof message));

    // A used object keeps its previous path and tries no open on it; types are case-sensitive.
    ScratchDirectory directory(kBase + "RESOLVE_UNKNOWN");
    file.Open("T_BASE", "RESOLVE_UNKNOWN\\OLD.TXT", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(0, file.Open("t_base", "RESOLVE_UNKNOWN\\NEW.TXT", KOVRA_READWRITE));
    EXPECT_EQ(directory / "OLD.TXT", file.GetRealFileName());
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_FALSE(PathExists(directory / "OLD.TXT"));
    EXPECT_EQ(1, file.GetLastError(&cause, message, sizeof message));
    EXPECT_EQ("Kovra : KOVRA_ERROR(t_base, RESOLVE_UNKNOWN\\NEW.TXT, " + directory / "OLD.TXT" + ", -1)",
              std::string(message));
    EXPECT_EQ(0, file.Close());  // no platform file object was made
}

TEST(Resolve, NamesAndPathsOverTheLimitFailWithErrorMinusTwo)
{
    ScratchDirectory directory(kBase + "RESOLVE_LONG");
    const std::string prefix = "RESOLVE_LONG\\";
    const std::string fits = prefix + std::string(259 - kBase.size() - prefix.size(), 'N');
    CKovra file;
    int cause = 0;
    EXPECT_EQ(1, file.Open("T_BASE", fits.c_str(), KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(kBase + fits, file.GetRealFileName());
    EXPECT_EQ(0, file.GetLastError(&cause));

    const std::string pathTooLong = fits + "N";
    EXPECT_EQ(0, file.Open("T_BASE", pathTooLong.c_str(), KOVRA_READWRITE));
    EXPECT_EQ(kBase + fits, file.GetRealFileName());  // the earlier path stays, unopened
    EXPECT_EQ(0, file.IsOpen());
    EXPECT_EQ(1, file.GetLastError(&cause));
    EXPECT_EQ(-2, cause);

    const std::string nameTooLong(260, 'N');
    EXPECT_EQ(0, file.Open("T_BASE", nameTooLong.c_str(), KOVRA_READWRITE, nullptr, 1));
    EXPECT_EQ(1, file.GetLastError(&cause));
    EXPECT_EQ(-2, cause);
    EXPECT_EQ(0, file.Open("NOPE", nameTooLong.c_str(), KOVRA_RESOLVE_ONLY));
    EXPECT_EQ(1, file.GetLastError(&cause));
    EXPECT_EQ(-2, cause);

    // Date fields that grow the name past the limit; the name keeps its fields.
    std::string growing;
    for (int count = 0; count < 100; ++count)
        growing += "%Y";
    EXPECT_EQ(0, file.Open("T_BASE", growing.c_str(), KOVRA_READWRITE));
    EXPECT_EQ(growing, file.GetFileName());
    EXPECT_EQ(1, file.GetLastError(&cause));
    EXPECT_EQ(-2, cause);
    EXPECT_EQ(0, file.Close());
}

} // namespace
