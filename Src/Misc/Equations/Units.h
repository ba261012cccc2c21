// Units behind numbers: `30 deg`, `5 percent`, `3 kilo`, `3 k`.  The number is multiplied by the
// factor.  A name directly behind a number can only be a unit, so no variable is hidden by one.
#pragma once

#include "Misc/Equations/EqnTable.h"
