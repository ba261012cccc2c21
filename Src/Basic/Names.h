// The one rule for names of nets, nodes, states, node sets and user fields.
//
// At most 30 characters, each a letter, a digit or "_", the first a letter or "_".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace talora {

constexpr int kMaxNameLength = 30;

enum NameProblem : uint32_t {
    NAME_MISSING = 2,
    NAME_EMPTY = 4,
    NAME_TOO_LONG = 8,
    NAME_BAD_CHAR = 16,
    NAME_BAD_FIRST = 32,
    NAME_IS_STAR = 64  // exactly "*" where that is forbidden
};

// Problem bits of a name (narrow or wide; null is NAME_MISSING), 0 if it is legal.
// @param reason  receives the first problem as a phrase ("is empty (contains no characters)"), if not null
uint32_t CheckName(const char* name, bool allow_star, std::string* reason);
// The same for narrow text of any bytes, such as a word of a file: what looks like the mark of wide text, or
// the end of it, is an illegal character there.
uint32_t CheckNarrowName(std::string_view name, bool allow_star, std::string* reason);

// The same without a reason, for readers of many names; "*" is not legal.
bool IsLegalName(std::string_view name);

// The name made legal: illegal characters become "_", it is cut to 30, a bad first character becomes "x".
std::string RepairName(std::string_view name);

// Splits a comma-separated list of names, blanks around each dropped.
std::vector<std::string> SplitNames(std::string_view list);

}  // namespace talora
