// Cases and nodes from a database.
//
// The rows of a query are written to a case file of their own, which the case set owns and removes with
// itself; so a query runs once, however often its cases are read.  Rows stream: memory does not grow with
// their number.
//
// Column names, tables and conditions are SQL of the caller's and go to the database as they are.  What comes
// from the database is only ever data.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "BN/Model/Bnet.h"
#include "VarVal/Caseset.h"
#include "VarVal/DbManager.h"

namespace talora {

// The parts of "SELECT columns FROM tables WHERE condition".
struct DbSelection {
    std::string columns;    // separated by commas; "": those called like the nodes
    std::string tables;     // with their joins
    std::string condition;  // "": every row
};

void AddDbCases(Caseset& cases, DbManager& manager, double degree, std::span<Node* const> nodes,
                const DbSelection& selection);

// A node for each column ("": all but IDnum and NumCases), in their order: the one of that name, or a new one
// with the values of the column as its states.
std::vector<Node*> AddDbNodes(Net& net, DbManager& manager, const DbSelection& selection);

}  // namespace talora
