// CauseOf and Address, which TestSupport.h holds now.
#pragma once

#include "TestSupport.h"
