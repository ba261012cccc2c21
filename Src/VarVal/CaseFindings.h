// Cases read one by one into the findings of a net, nodes made from the columns of a case file, and whole
// case sets written to one file.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Basic/Stream.h"
#include "VarVal/Caseset.h"

namespace talora {

// What is done about columns that are no node of the net.  Numbered for callers.
enum class AddMode { NEVER, ASK, TELL, QUIETLY };

struct FoundCase {
    int64_t position = -1;  // of the case; -1 if there is none left
    int64_t id = -1;
    double freq = 1;
};

constexpr int64_t kNextCase = -1;  // the one after the case read last from this stream

// Reads the case that begins at a position (0: the first one) into the findings of those nodes that have a
// column; what they had goes.  Nodes added join the net; they get findings too.  After a failure the
// findings are as they were.
FoundCase ReadFindings(Stream& file, Net& net, std::vector<Node*> nodes, int64_t position, AddMode mode);

// The position of the case of that number, from 1; -1 if there are fewer.
int64_t FindCase(const Stream& file, int64_t number);

// Makes a node for each of these columns of a case file.  All its cases are read: words become states,
// in the order in which they come up; small whole numbers become states without names; other numbers make a
// continuous node.  Columns whose name is no legal name are left out with a warning.
std::vector<Node*> AddNodesOfColumns(Net& net, const CaseSource& source, const std::vector<int>& columns);

// All cases of a set in one file: a column for each column of its files, in the order in which they come up.
void WriteCaseset(const Caseset& cases, Stream& file);

// Goes through all cases of a set.
struct CasesetSize {
    int64_t num_cases = 0;
    double total_weight = 0;
};
CasesetSize MeasureCaseset(const Caseset& cases);

}  // namespace talora
