// The report of a net test, as text.
#pragma once

#include <string>

#include "BN/Testing/BnTestNet.h"

namespace talora {

// Every figure of one node under test.  Asks the user before printing a very large confusion matrix,
// and warns of a user field `target_state` that names no state.
std::string TestReport(const NodeTest& test);

// The reports of all nodes under test, one after the other.
std::string TestReport(Tester& tester);

}  // namespace talora
