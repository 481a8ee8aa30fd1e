// The C interface compiled as C in Microsoft mode, on i686 with the default convention __stdcall
// (-mrtd, /Gz): a function or callback whose declaration didn't state its convention would be
// called wrongly here. Walk.cpp takes the main road through the classes that call these functions.
#include "Runtime.h"
#include "kovra/capi.h"
#include "kovra/diag.h"

// Each key of the profile's [W] section, one a line from line 2, is of no setting.
static void KOVRA_CALL CountProblem(void* context, int line, const char* problem)
{
    int* count = (int*)context;
    CHECK(line == 2 + (*count)++ && EndsWith(problem, "' in [W]"));
}

void __cdecl WalkC(const char* profile)
{
    int problems = 0;
    CHECK(KovraCheckConfig(profile, &CountProblem, &problems) == 4 && problems == 4);
    KovraFile* file = KovraFile_Create("DATA", "C.TXT", KOVRA_READWRITE | KOVRA_TEXT, 0, 0);
    CHECK(KovraFile_Printf(file, 0, "%s, %d %.2f\n", "variable", 3, 0.25) == 18 && KovraFile_GetLength(file, 0) == 18);
    KovraFile_Destroy(file);
}
