// Beliefs for every case of a case set, written beside the cases.
//
// Reading, propagating and writing are streamed: memory does not grow with the number of cases.
#pragma once

#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Stream.h"
#include "VarVal/Caseset.h"

namespace talora {

struct ScoreOptions {
    bool json_lines = false;   // an object per line instead of a case file with more columns
    bool whole_cases = false;  // what a case says of the nodes asked for is entered too
};

// @param nodes  of one net, each once, with states and beliefs
// @return how many cases were written.  Those that are impossible count; their beliefs are left open and a
//   warning names them.  After an error or a halt the output is as it was.
double WriteCaseBeliefs(const Caseset& cases, const std::vector<Node*>& nodes, Stream& output,
                        const ScoreOptions& options);

}  // namespace talora
