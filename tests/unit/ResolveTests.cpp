// Resolution to a real path, the file types, sessions, threads and identities it uses, and its failures.
#include <cstring>

#include "UnitChecks.h"

using namespace kovratest;

namespace {

#define DRIVE KOVRA_TEST_DRIVE ":"

std::string Resolve(const char* type, const char* name, int flags = 0, KovraOpenPar_S* parameters = nullptr)
{
    return CKovra(type, name, KOVRA_RESOLVE_ONLY, parameters, flags).GetRealFileName();
}

// "<cause> <message>" of the pending failure, "0 " when there is none.
std::string Failure(CKovra& file)
{
    int cause = 0;
    char message[1024] = "";
    file.GetLastError(&cause, message, sizeof message);
    return std::to_string(cause) + " " + message;
}

Lines Types() { return FileTypes(::GetModuleHandleA("kovra.dll")); }  // "name location encryption" of each record

TEST(Resolve, EveryLocationWithAndWithoutAClientTheOpenParametersAndAReadOnlyPath)
{
    CKovra::SetModulePath(DRIVE "\\APP\\MOD1");
    CKovra::SetUser("U1");
    const std::string same = kBase + "SUB\\F.TXT", client = kBase + "CLIENTS\\C1\\";
    const std::vector<std::array<std::string, 3>> rows = {  // type, without a client, with the client C1
        {"DFT", same, same},                                  // DEFAULT
        {"T_BASE", same, same},
        {"T_MODULE", kBase + "MOD1\\SUB\\F.TXT", kBase + "MOD1\\SUB\\F.TXT"},
        {"T_CLIENT", same, client + "APP\\SUB\\F.TXT"},
        {"T_MODULECLIENT", DRIVE "\\MOD1\\SUB\\F.TXT", client + "MOD1\\SUB\\F.TXT"},
        {"T_USER", kBase + "USERS\\U1\\F.TXT", client + "USERS\\U1\\F.TXT"},
        {"T_WKSTA", kBase + "DAT\\WS1\\F.TXT", client + "DAT\\WS1\\F.TXT"},
        {"T_WKSTATMP", kBase + "DAT\\WS1\\TMP\\F.TXT", client + "DAT\\WS1\\TMP\\F.TXT"},
        {"T_BASEDATA", same, same},
        {"T_BASEREADONLY", "R:\\RO\\APP\\SUB\\F.TXT", "R:\\RO\\APP\\SUB\\F.TXT"},
        {"T_MODULEREADONLY", "R:\\RO\\MOD1\\SUB\\F.TXT", "R:\\RO\\MOD1\\SUB\\F.TXT"},
    };
    for (size_t column : {1, 2}) {
        for (const auto& row : rows)
            EXPECT_EQ(row[column], Resolve(row[0].c_str(), "SUB\\F.TXT")) << row[0];
        CKovra::SetClient("C1");
    }
    // Open parameters with a size put their location (7: WKSTA) in place of the type's; of size 0 they don't.
    KovraOpenPar_S unsized = {0, {}, 7, 0}, sized = {12, {}, 7, 0};
    EXPECT_EQ(same, Resolve("T_BASE", "SUB\\F.TXT", 0, &unsized));
    EXPECT_EQ(client + "DAT\\WS1\\F.TXT", Resolve("T_BASE", "SUB\\F.TXT", 0, &sized));
    // A process configured without a read-only path uses the base and (its) module path.
    ScratchDirectory configuration(kBase + "NOREADONLY");
    WriteFileBytes(configuration / "CKOVRA.INI", "[DefaultSettings]\r\nOption=32\r\n");
    for (const std::string type : {"T_BASEREADONLY", "T_MODULEREADONLY"})
        EXPECT_EQ(same, ChildProcess(CommandLine("kovra.exe", "resolve " + type + " SUB\\F.TXT"),
                                     {{"KARVELO-CKOVRAHOME", configuration.Path()}}).WaitForLine("")) << type;
}

TEST(Resolve, LiteralNamesTheFirstParentReferenceDateFieldsAndTheFailuresReportedOnce)
{
    EXPECT_EQ("C:\\DIR\\F.TXT", Resolve("T_USER", "C:\\DIR\\F.TXT"));
    EXPECT_EQ("\\\\SRV\\SHARE\\F.TXT", Resolve("T_WKSTA", "\\\\SRV\\SHARE\\F.TXT"));
    EXPECT_EQ("REL\\F.TXT", Resolve("T_USER", "REL\\F.TXT", 1));
    EXPECT_EQ(kBase + "\\SUB\\F", Resolve("T_BASE", "\\SUB\\F"));  // one backslash makes no literal name
    // Only the first "\..\" goes, with the directory name before it.
    EXPECT_EQ(kBase + "PRG\\F", Resolve("T_BASE", "DAT\\..\\PRG\\F"));
    EXPECT_EQ(kBase + "B\\..\\F", Resolve("T_BASE", "A\\..\\B\\..\\F"));
    EXPECT_EQ("X\\..\\F", Resolve("T_BASE", "X\\..\\F", 1));  // no backslash before it

    const std::string date = CurrentUtcDate("%Y%m%d");
    CKovra file;
    file.Open("T_BASE", "LOG\\%Y%M%D.LOG", KOVRA_RESOLVE_ONLY);
    EXPECT_EQ(kBase + "LOG\\" + date + ".LOG", file.GetRealFileName());  // the name in place: checked by the next Open
    file.Open("T_BASE", "%y%M%T_%d%X", KOVRA_RESOLVE_ONLY);  // %T is the day when there is no %D
    EXPECT_EQ(date.substr(2) + "_%d%X", std::string(file.GetFileName()));

    NameBuilder builder;  // the name lengthened by its date fields, as long as it fits
    const std::string fits = std::string(255, 'N') + "%Y";  // 259 characters with the year
    char name[260], real[260];
    std::strcpy(name, fits.c_str());
    const std::string built = std::string(255, 'N') + date.substr(0, 4);  // answer, name and real path
    EXPECT_EQ("1 " + built + " " + built, Joined(builder.BuildFileName("T_BASE", name, real, 1), name, real));
    std::strcpy(name, ("N" + fits).c_str());  // one more doesn't fit: the name stays as it is
    EXPECT_EQ("0 N" + fits, Joined(builder.BuildFileName("T_BASE", name, real, 1), name));
    EXPECT_EQ(1, builder.BuildFileName("T_BASE", const_cast<char*>("100%.TXT"), real, 0));  // no date fields: untouched

    // What GetLastError reports: unknown types, overlong names and file failures, each once.
    ScratchDirectory directory(kBase + "ERR");
    const std::string missing = directory / "MISSING.TXT";
    EXPECT_EQ(0, file.Open("T_BASE", "ERR\\MISSING.TXT", KOVRA_READ));
    EXPECT_EQ(0, file.IsDirectory());
    // Types are case-sensitive. The earlier path stays, and no open is tried on it.
    EXPECT_EQ(0, file.Open("t_base", "ERR\\NEW.TXT", KOVRA_READWRITE));
    EXPECT_FALSE(PathExists(missing));
    // A pending cause of the file layer comes before a pending error of the library.
    EXPECT_EQ("2 " + missing + " was not found.", Failure(file));
    EXPECT_EQ("-1 Kovra : KOVRA_ERROR(t_base, ERR\\NEW.TXT, " + missing + ", -1)", Failure(file));
    EXPECT_EQ("0 ", Failure(file));
    EXPECT_EQ(0, file.Open("T_BASE", "ERR", KOVRA_READWRITE));
    EXPECT_EQ(1, file.IsDirectory());
    EXPECT_EQ("5 Access to " + kBase + "ERR was denied.", Failure(file));
    // A joined path of 260 characters (259 fit: BadInput) names no file; an overlong name isn't stored.
    const std::string overlong = "ERR\\" + std::string(260 - kBase.size() - 4, 'N');
    EXPECT_EQ(0, file.Open("T_BASE", overlong.c_str(), KOVRA_READWRITE));
    EXPECT_EQ("-2 Kovra : KOVRA_ERROR(T_BASE, " + overlong + ", , -2)", Failure(file));
    EXPECT_EQ(0, file.Open("NOPE", std::string(260, 'N').c_str(), KOVRA_READWRITE, nullptr, 1));
    EXPECT_EQ("-2 Kovra : KOVRA_ERROR(NOPE, , , -2)", Failure(file));
}

// The table's layout in the shared block is fixed by the static assertions of records.h.
TEST(FileTypes, NamesAreCaseSensitiveChangedInPlaceAtMost35CharactersAndAtMost1489)
{
    std::vector<std::string> expected = Types();
    ASSERT_EQ(12u, expected.size());  // DFT, XWS and the ten of the configuration
    const std::string longest(35, 'n');
    // Each answers 1: abc is changed in place to what is given; 36 characters (they would be cut into another type)
    // and the empty name (the table keeps its end) add nothing.
    for (const auto& [name, location, encryption] : std::vector<std::tuple<std::string, int, int>>{
             {"abc", 2, 1}, {"ABC", 6, 1}, {"abc", 9, 7}, {longest, 2, 1}, {longest + "n", 2, 1}, {"", 2, 1}})
        EXPECT_EQ(1, CKovra::AddFileType(name.c_str(), location, encryption)) << name;
    expected.insert(expected.end(), {"abc 9 7", "ABC 6 1", longest + " 2 1"});
    EXPECT_EQ(expected, Types());
    EXPECT_EQ(kBase + "F.TXT", Resolve("abc", "F.TXT"));  // 9: the data path, here the base path
    // Lookups see a type that another process adds after them, and a record changed in place as it now is.
    EXPECT_EQ("", Resolve("CHILD", "F.TXT"));
    EXPECT_EQ(0, ChildProcess(CommandLine("kovra_child.exe", "addtype CHILD 7")).Wait());
    EXPECT_EQ(kBase + "DAT\\WS1\\F.TXT", Resolve("CHILD", "F.TXT"));
    EXPECT_EQ(1, CKovra::AddFileType("abc", 7, 7));
    EXPECT_EQ(kBase + "DAT\\WS1\\F.TXT", Resolve("abc", "F.TXT"));
    EXPECT_EQ(0, CKovra::SetDebugLevel(5));
    EXPECT_EQ(5, CKovra::SetDebugLevel(0));  // each call answers the level it replaces

    for (size_t index = Types().size(); index < 1489; ++index)
        ASSERT_EQ(1, CKovra::AddFileType(("TYPE" + std::to_string(index)).c_str(), 2, 1));
    EXPECT_EQ(1, CKovra::AddFileType("ONE_TOO_MANY", 2, 1));
    EXPECT_EQ(1, CKovra::AddFileType("TYPE1000", 4, 1));  // a full table still changes what it holds
    const std::vector<std::string> types = Types();
    ASSERT_EQ(1489u, types.size());
    EXPECT_EQ("TYPE1000 4 1", types[1000]);
    EXPECT_EQ("TYPE1488 2 1", types.back());  // and not ONE_TOO_MANY
}

void* Session(INT_PTR value) { return reinterpret_cast<void*>(value); }
void* const kProcessSession = Session(static_cast<INT_PTR>(::GetCurrentProcessId()));
const std::string kProcess = std::to_string(::GetCurrentProcessId());

// The session records "<session>:<reference count>", "|", the bindings "<session>/<thread id>".
std::string Registry()
{
    std::ostringstream text;
    KovraSession_S record;
    for (int index = 0; KovraGetSession(index, &record); ++index)
        text << reinterpret_cast<INT_PTR>(record.session) << ":" << record.referenceCount << " ";
    text << "|";
    void* session = nullptr;
    unsigned long thread = 0;
    for (int index = 0; KovraGetThreadBinding(index, &session, &thread); ++index)
        text << " " << reinterpret_cast<INT_PTR>(session) << "/" << thread;
    return text.str();
}

TEST(Registry, StartsAndRemovalsCountReferencesAndTheCallerGetsItsNewestLiveBindingOrAFallBack)
{
    const unsigned long thread = ::GetCurrentThreadId();
    const std::string self = " " + kProcess + "/" + std::to_string(thread);
    // Start-up counted the process session for itself and for the thread that loaded the library.
    EXPECT_EQ(kProcess + ":2 |" + self, Registry());
    // Starting one thread twice counts its session twice but binds it once.
    EXPECT_EQ(1, CKovra::StartThread(Session(77), 5000));
    EXPECT_EQ(0, CKovra::StartThread(Session(77), 5000));
    EXPECT_EQ(kProcess + ":2 77:2 |" + self + " 77/5000", Registry());
    EXPECT_EQ(1, CKovra::RemoveThread(Session(77), 5000));
    EXPECT_EQ(0, CKovra::RemoveThread(Session(77), 5000));  // no longer bound: the count stays
    EXPECT_EQ(kProcess + ":2 77:1 |" + self, Registry());
    // Removing a session leaves the bindings of its threads.
    CKovra::StartThread(Session(77), 6000);
    EXPECT_EQ(1, CKovra::RemoveSession(Session(77)));
    EXPECT_EQ(1, CKovra::RemoveSession(Session(77)));
    EXPECT_EQ(kProcess + ":2 |" + self + " 77/6000", Registry());

    // The caller's session comes from its newest live binding or a fall-back.
    CKovra::StartThread(Session(101), thread);
    EXPECT_EQ(Session(101), CallerSession().session);
    CKovra::StartThread(Session(102), thread);  // bound to two sessions: the newest binding wins
    EXPECT_EQ(Session(102), CallerSession().session);
    CKovra::StartThread(Session(105), thread);
    CKovra::RemoveThread(Session(102), thread);  // a binding between two others goes
    EXPECT_EQ(Session(105), CallerSession().session);
    CKovra::RemoveThread(Session(105), thread);
    EXPECT_EQ(Session(101), CallerSession().session);
    CKovra::RemoveSession(Session(101));  // a stale binding finds no record: the process session answers
    EXPECT_EQ(kProcessSession, CallerSession().session);
    // With option 1 a binding to the process session gives way to any other binding.
    CKovra::RemoveThread(kProcessSession, thread);
    CKovra::StartThread(Session(103), thread);
    CKovra::StartThread(kProcessSession, thread);
    EXPECT_EQ(kProcessSession, CallerSession().session);
    EXPECT_EQ(1, CKovra::SetOption(1, 7));
    EXPECT_EQ(Session(103), CallerSession().session);
    std::thread([] { EXPECT_EQ(kProcessSession, CallerSession().session); }).join();  // unbound
    EXPECT_EQ(1, CKovra::SetOption(1, 0));
    // Without the process session an unbound thread gets the oldest session; without any, none.
    CKovra::StartSession(Session(104));
    CKovra::RemoveThread(kProcessSession, thread);
    CKovra::RemoveSession(kProcessSession);
    std::thread([] { EXPECT_EQ(Session(103), CallerSession().session); }).join();
    CKovra::RemoveThread(Session(103), thread);
    CKovra::RemoveSession(Session(104));
    EXPECT_EQ(0, KovraGetThreadSession(nullptr));
}

// Concurrent changes of one session: stress.Short.
TEST(Identity, EveryThreadOfASessionSeesItsChangesAndOverlongValuesAreRefused)
{
    void* session = Session(401);
    const std::string longest(253, 'u');
    std::thread([&] {
        CKovra::StartThread(session, ::GetCurrentThreadId());
        EXPECT_EQ(1, CKovra::SetUser(longest.c_str()));
        EXPECT_EQ(0, CKovra::SetUser((longest + "u").c_str()));
        EXPECT_EQ(1, CKovra::SetClient("C1"));
        EXPECT_EQ(0, CKovra::SetClient(std::string(252, 'c').c_str()));  // a module path of 259: BadInput
        EXPECT_EQ(1, CKovra::SetModulePath("C:\\APP"));
    }).join();
    std::thread([&] {
        CKovra::StartThread(session, ::GetCurrentThreadId());
        const KovraSession_S seen = CallerSession();
        EXPECT_EQ(Joined(session, "USERS\\" + longest, "CLIENTS\\C1 C:\\APP\\"),
                  Joined(seen.session, seen.user, seen.client, seen.modulePath));
    }).join();
    EXPECT_STREQ("", CallerSession().user);  // the process session kept its own identity
}

} // namespace
