// Net testers: how well a net predicts some of its nodes, measured with cases.
//
// A tester belongs to its net and is deleted with it.  The net may change between runs, as when tables
// are learned; but once cases have been counted, a node under test must not be deleted or get other states.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "BN/Model/Bnet.h"
#include "BN/Testing/TestRecord.h"
#include "Basic/Handle.h"
#include "VarVal/Caseset.h"

namespace talora {

struct NodeTest {
    node_bn* node = nullptr;
    std::string name;   // for messages when the node is gone
    NodeStates states;  // as they were when the tester was made
    TestRecord record;
};

}  // namespace talora

struct tester_bn {
    talora::HandleHeader header;
    net_bn* net = nullptr;
    std::vector<talora::NodeTest> tests;
    std::vector<node_bn*> unobserved;  // their findings are never entered; may have been deleted since
    double cases_read = 0;             // weights of all cases, with those that are impossible
    double impossible_cases = 0;
    int64_t lines_read = 0;  // cases without their weights
    std::string report;      // text given out last
};

namespace talora {

using Tester = tester_bn;

// Fails for no nodes to test, nodes of different nets, nodes twice, kinds without beliefs.
Tester* NewTester(const std::vector<Node*>& test_nodes, const std::vector<Node*>& unobserved);
void DeleteTester(Tester* tester) noexcept;
void ClearTester(Tester& tester);  // forgets all cases

// Other bins for calibration; edges only for GIVEN_BINS.  Fails once a case has been counted.
void SetTestBins(Tester& tester, const Node& node, int scheme, std::span<const double> edges);

// Runs all cases of a set and adds to the records.  Cases that are impossible under the net are named in
// warnings and left out.  After a halt the cases done are kept, after an error none of this set.
void TestWithCaseset(Tester& tester, const Caseset& cases);

// What is known of a node under test; fails if it is none, was deleted, or has other states now.
NodeTest& TestOf(Tester& tester, const Node& node);

// What a sum comes to per case: undefined without cases, the number for infinity if it is infinite.
double PerCase(double sum, double cases);

}  // namespace talora
