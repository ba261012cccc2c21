// The cases of an iterative learning job: read once, then evaluated in every iteration for their probability
// and their expected counts in the learned families, under tables that change.
//
// Complete cases are only counted: their likelihood and their counts come from the counts.  Of the others
// the complete families are counted too, and what is left is propagated, equal cases once.  Different cases
// are kept packed, a byte per node; when they need more than a bound, they are read anew each time instead.
//
// The net's own tables and findings are neither used up nor changed: the tables that are learned are handed
// in.  The net is compiled.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "BN/Learning/LrnCPTs.h"
#include "Basic/Progress.h"

namespace talora {

// One table per learned family, complete, as propagation reads them.
using TableSet = std::vector<TableVector<float>>;

class LearnData {
public:
    // @param degree      of each case, besides the weight that it has
    // @param most_bytes  for cases that are kept
    LearnData(Net& net, std::span<Node* const> nodes, const Caseset& cases, double degree,
              double most_bytes = 512e6);
    ~LearnData();
    LearnData(const LearnData&) = delete;
    LearnData& operator=(const LearnData&) = delete;

    const std::vector<LearnedFamily>& Families() const;
    int64_t NumCases() const;
    bool IsKept() const;  // the cases, rather than read anew

    // The tables to start with: those of the nodes, uniform where there are none.  With a generator, families
    // with a node that no case has a value for start a little off uniform, since all its states would stay
    // alike otherwise.
    TableSet StartTables(randgen_vx* generator) const;
    // Counts that the experience of the nodes stands for, by family.
    std::vector<Counts> PriorCounts() const;

    // Minus the log likelihood of all cases and, unless counts is null, the expected counts by family.  Fails
    // naming the case if one is impossible.  False if halted.
    bool Evaluate(const TableSet& tables, std::vector<Counts>* counts, double* minus_log_likelihood,
                  Progress& progress, double fraction);

private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

// ---- What the methods share ----

// What experience adds to minus the log likelihood: cases seen before.
double MinusLogPrior(const TableSet& tables, const std::vector<Counts>& prior);

// Gives the nodes their new tables; the experience of a row is the sum of its counts.  Rows without counts
// stay as they are in the net.
void StoreLearned(const LearnData& data, TableSet tables, const std::vector<Counts>& counts);

void PrintIterationHeader(const char* banner);
// Prints a line of the table of iterations.
void PrintIteration(int iteration, const LearnIteration& known);
// The relative change from one minus log likelihood to the next.
double RelativeChange(double before, double after);

}  // namespace talora
