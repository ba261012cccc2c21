// The one question before the tables of a junction tree are made, whatever job they are for.
#pragma once

#include <string>

namespace talora {

constexpr double kMaxTreeBytes = 2e9;  // more and exact inference is refused

// Fails unless tables of so many entries are small enough, and within the memory limit.
// @param net_name  for the message; may be empty
void CheckTreeTables(double entries, const std::string& net_name);

}  // namespace talora
