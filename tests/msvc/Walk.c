// kovra's C headers compiled as C in Microsoft mode, on i686 with the default convention
// __stdcall (-mrtd, /Gz): a callback whose type didn't state its convention would be called
// wrongly here. Walk.cpp takes the main road through the classes, over the C interface.
#include "Runtime.h"
#include "kovra/capi.h"
#include "kovra/diag.h"

// Each key of the profile's [W] section, one a line from line 2, is of no setting.
static void KOVRA_CALL CountProblem(void* context, int line, const char* problem)
{
    CHECK(line == 2 + (*(int*)context)++ && EndsWith(problem, "' in [W]"));
}

void __cdecl WalkC(const char* profile)
{
    int problems = 0;
    CHECK(KovraCheckConfig(profile, &CountProblem, &problems) == 4 && problems == 4);
}
