// What every reader of a foreign format needs: looking up nodes and states by name, room for tables, and
// the checks that a net must pass before it becomes one of the engine's.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Foreign/ForeignNet.h"
#include "Foreign/ForeignText.h"

namespace talora {

// The nodes of a net by name.
class NodeNames {
public:
    NodeNames(const ForeignSource& source, ForeignNet& net) : source_(source), net_(net) {}
    // Adds a node that is declared at a place; fails if there is one of this name.
    ForeignNode& Add(std::string name, size_t at);
    int TryFind(std::string_view name) const;             // -1 if there is none
    int Find(std::string_view name, size_t at) const;     // fails
    ForeignNode& Node(std::string_view name, size_t at);  // fails

private:
    const ForeignSource& source_;
    ForeignNet& net_;
    std::unordered_map<std::string, int> by_name_;
};

int TryFindState(const ForeignNode& node, std::string_view state);  // -1 if there is none
// @param of  the node whose table is read, for the message
int FindState(const ForeignSource& source, const ForeignNode& node, std::string_view state, size_t at,
              const ForeignNode* of = nullptr);

// Room for the whole table of a node, filled with kNoNumber, and for the places of its rows.  What a file
// only declares may take so much memory: some megabytes, and 16 bytes for each byte of the file.
void ReserveTable(const ForeignSource& source, ForeignNet& net, ForeignNode& node, size_t at);
// States of a node of which the file gives only the count: "prefix0", "prefix1", ...
void NumberStates(const ForeignSource& source, ForeignNet& net, ForeignNode& node, std::string_view prefix,
                  double count, int64_t first, size_t at);
// Fails unless a table read as a whole has the size that states and parents give.
void CheckTableSize(const ForeignSource& source, const ForeignNet& net, const ForeignNode& node, size_t found,
                    size_t at);
// Fails if a node has a table already.
void NeedNoTable(const ForeignSource& source, const ForeignNode& node, size_t at);

// One row of a table, by the states of the parents in order; -1 stands for every state.
class RowWriter {
public:
    RowWriter(const ForeignSource& source, const ForeignNet& net, ForeignNode& node);
    void Put(const std::vector<int>& states, const std::vector<double>& row, size_t at);
    // Rows without numbers get these.
    void PutDefault(const std::vector<double>& row, size_t at);

private:
    void NeedWidth(size_t count, size_t at) const;
    const ForeignSource& source_;
    const ForeignNet& net_;
    ForeignNode& node_;
    size_t num_put_ = 0;
};

// The last stage of every read: states and parents are no doubles, links form no cycle, every table has its
// size, and its rows are brought to the sum 1 where they miss it by rounding; else it fails with the place.
void CheckForeignNet(const ForeignSource& source, ForeignNet& net);

}  // namespace talora
