// Properties of nets and nodes as words and as JSON values.
#pragma once

#include <string>

#include "talora/Session.h"

namespace command {

// What does not exist is null: text that is empty, numbers that are undefined or infinite.
Json TextOrNull(const char* text);
Json RealOrNull(double value);
Json LevelsOrNull(const node_bn* node);

// A single-precision number in as few digits as read back to the same value.
Json Probability(prob_bn value);

// Kind and type as net files write them: NATURE, DISCRETE and so on.
const char* KindWord(const node_bn* node);
const char* TypeWord(const node_bn* node);

// "ChestClinic: Chest clinic" and a line end.
std::string NetHeading(const net_bn* net);

}  // namespace command
