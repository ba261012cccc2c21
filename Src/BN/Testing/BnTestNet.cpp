// Net testers: which nodes are under test, running cases through the net, and scoring beliefs against the
// truth.
#include "BN/Testing/BnTestNet.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include "BN/CaseRuns/CaseBeliefs.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"

namespace talora {

namespace {

HandlePool<tester_bn, TESTER_TYPE>& Testers()
{
    static auto* pool = new HandlePool<tester_bn, TESTER_TYPE>;
    return *pool;
}

// Confusion takes the square of the states, calibration states times bins.
void CheckRecordMemory(const Node& node, const CalibrationBins& bins)
{
    CheckMemory(RecordBytes(NumStates(node), bins.Count()), "to test >-node '%s', which has %d states",
                node.name.c_str(), NumStates(node));
}

void CheckTestNodes(const Net& net, const std::vector<Node*>& nodes)
{
    std::unordered_set<const Node*> seen;
    for (const Node* node : nodes) {
        if (node->net != &net) Fail<6735>(nodes[0]->name.c_str(), node->name.c_str());
        if (!seen.insert(node).second) Fail<6180>(node->name.c_str());
        if (!IsInTree(*node)) Fail<6736>(node->name.c_str(), KindTerm(node->kind));
        CheckRecordMemory(*node, FixedBins(FINE_BINS));
    }
}

// The states are copied: the test holds for them and no others.
NodeTest NewTest(Node& node)
{
    return {&node, node.name, node.states, TestRecord(NumStates(node), FixedBins(FINE_BINS))};
}

}  // namespace

// All checks and copies come first, so that nothing can fail once the tester is in the net's list.
Tester* NewTester(const std::vector<Node*>& test_nodes, const std::vector<Node*>& unobserved)
{
    if (test_nodes.empty()) Fail<6734>();
    Net& net = *test_nodes[0]->net;
    CheckTestNodes(net, test_nodes);
    for (const Node* node : unobserved)
        if (node->net != &net) Fail<6735>(test_nodes[0]->name.c_str(), node->name.c_str());
    std::vector<NodeTest> tests;
    for (Node* node : test_nodes) tests.push_back(NewTest(*node));
    Tester* tester = Testers().New(net.header.Lock());
    try {
        Enlist(net, {tester, [](void* object) noexcept { DeleteTester(static_cast<Tester*>(object)); }});
    } catch (...) {
        Testers().Release(tester);
        throw;
    }
    tester->net = &net;
    tester->tests = std::move(tests);
    tester->unobserved = unobserved;
    return tester;
}

void DeleteTester(Tester* tester) noexcept
{
    Withdraw(*tester->net, tester);
    Testers().Release(tester);
}

// The cleared records are made before any is replaced, as memory may run out.
void ClearTester(Tester& tester)
{
    std::vector<NodeTest> tests = tester.tests;
    for (NodeTest& test : tests) test.record = TestRecord(test.record.num_states, test.record.bins);
    tester.tests = std::move(tests);
    tester.cases_read = tester.impossible_cases = 0;
    tester.lines_read = 0;
}

// ---- Nodes under test ----

namespace {

// Names of states and their number, and what numbers they stand for; titles and comments may change.
bool AreSameStates(const NodeStates& a, const NodeStates& b)
{
    if (a.type != b.type || a.num_states != b.num_states || a.levels != b.levels) return false;
    const StateText none;
    const size_t num_texts = std::max(a.texts.size(), b.texts.size());
    for (size_t i = 0; i < num_texts; ++i) {
        const StateText& text_a = i < a.texts.size() ? a.texts[i] : none;
        const StateText& text_b = i < b.texts.size() ? b.texts[i] : none;
        if (text_a.name != text_b.name) return false;
    }
    return true;
}

bool IsInNet(const Net& net, const Node* node)
{
    if (!IsLive(node, NODE_TYPE) || node->net != &net) return false;
    const auto& nodes = net.nodes.nodes;
    return node->index >= 0 && size_t(node->index) < nodes.size() && nodes[size_t(node->index)] == node;
}

// The node must be as it was, unless nothing has been counted: then the record is made for it as it is.
void FitTest(Tester& tester, NodeTest& test)
{
    if (!IsInNet(*tester.net, test.node)) Fail<6737>(test.name.c_str());
    if (!AreSameStates(test.node->states, test.states) && tester.lines_read == 0) {
        CheckRecordMemory(*test.node, test.record.bins);
        test.record = TestRecord(NumStates(*test.node), test.record.bins);
        test.states = test.node->states;
    }
    if (!AreSameStates(test.node->states, test.states)) Fail<6738>(test.node->name.c_str());
    if (!IsInTree(*test.node)) Fail<6736>(test.node->name.c_str(), KindTerm(test.node->kind));
}

}  // namespace

NodeTest& TestOf(Tester& tester, const Node& node)
{
    const auto found = std::find_if(tester.tests.begin(), tester.tests.end(),
                                    [&](const NodeTest& test) { return test.node == &node; });
    if (found == tester.tests.end()) Fail<6732>(node.name.c_str());
    FitTest(tester, *found);
    return *found;
}

// A sum over cases as an average; undefined without any.
double PerCase(double sum, double cases)
{
    if (!(cases > 0)) return UndefDbl();
    return std::isinf(sum) ? InfinityDbl() : sum / cases;
}

// ---- Bins ----

namespace {

// Edges given by a caller; the ends 0 and 1 may be left out.
std::vector<double> CompleteEdges(std::span<const double> given)
{
    if (given.size() > size_t(kMaxGivenBins)) Fail<6740>(int(given.size()), kMaxGivenBins);
    std::vector<double> edges(1, 0);
    for (size_t i = 0; i < given.size(); ++i) {
        const double edge = given[i];
        if (!(edge >= 0 && edge <= 1) || (i > 0 && !(edge > given[i - 1])))
            Fail<6741>(Ordinal(int64_t(i) + 1).c_str(), edge);
        if (edge > 0 && edge < 1) edges.push_back(edge);
    }
    edges.push_back(1);
    return edges;
}

}  // namespace

void SetTestBins(Tester& tester, const Node& node, int scheme, std::span<const double> edges)
{
    if (scheme < FINE_BINS || scheme > GIVEN_BINS) Fail<6739>(scheme, GIVEN_BINS);
    TestRecord& record = TestOf(tester, node).record;
    if (tester.lines_read != 0) Fail<6742>(node.name.c_str());
    CalibrationBins bins = scheme == GIVEN_BINS ? CalibrationBins{GIVEN_BINS, CompleteEdges(edges)}
                                                : FixedBins(BinScheme(scheme));
    CheckRecordMemory(node, bins);
    record = TestRecord(record.num_states, std::move(bins));
}

// ---- Running cases ----

namespace {

// One run over a case set.
struct TestRun {
    Tester* tester = nullptr;
    std::vector<Node*> read;                        // nodes of the reader: those under test first
    std::vector<char> enters;                       // by position there
    std::vector<Node*> asked;                       // nodes under test that have states
    std::vector<int> asked_at;                      // by test: position in asked, -1 for none
    std::vector<std::vector<double>> state_values;  // by test: numbers the states stand for, or none
    const CaseSource* source = nullptr;             // that columns were looked for in
};

// The numbers that the states of a continuous nature node stand for; none if that is not known of all.
std::vector<double> StateValues(const Node& node)
{
    std::vector<double> values;
    if (!IsDiscretized(node) || node.kind != NATURE_NODE) return values;
    for (int state = 0; state < NumStates(node); ++state) {
        values.push_back(StateValue(node, state));
        if (IsUndef(values.back())) return {};
    }
    return values;
}

// The reader gets the nodes under test for the truth, and all others for their findings.
TestRun PrepareRun(Tester& tester)
{
    TestRun run;
    run.tester = &tester;
    std::unordered_set<const Node*> left_out(tester.unobserved.begin(), tester.unobserved.end());
    for (NodeTest& test : tester.tests) {
        FitTest(tester, test);
        left_out.insert(test.node);
        run.read.push_back(test.node);
        run.enters.push_back(false);
    }
    for (Node* node : tester.net->nodes.nodes) {
        if (!IsInTree(*node) || !HasStates(*node) || left_out.count(node)) continue;
        run.read.push_back(node);
        run.enters.push_back(true);
    }
    return run;
}

// What depends on the states of the nodes under test.
void PrepareScores(TestRun& run)
{
    for (NodeTest& test : run.tester->tests) {
        FitTest(*run.tester, test);
        run.asked_at.push_back(HasStates(*test.node) ? int(run.asked.size()) : -1);
        if (HasStates(*test.node)) run.asked.push_back(test.node);
        run.state_values.push_back(StateValues(*test.node));
    }
}

// Once per source: a node under test without a column is tested by none of its cases.
void WarnOfMissingColumns(TestRun& run, const CaseReader& reader)
{
    if (run.source == &reader.Source()) return;
    run.source = &reader.Source();
    for (size_t i = 0; i < run.tester->tests.size(); ++i)
        if (!reader.HasColumn(int(i))) Warn<6748>(run.source->name.c_str(), run.read[i]->name.c_str());
}

// A known state is scored against the belief in it; a known number, of a node whose states stand for numbers,
// against mean and deviation of the beliefs.
void ScoreCase(TestRun& run, size_t at, std::span<const float> belief, int actual, double value,
               double weight)
{
    TestRecord& record = run.tester->tests[at].record;
    if (actual >= 0) ScoreState(record, belief, actual, weight);
    const std::vector<double>& values = run.state_values[at];
    if (IsUndef(value) || values.empty()) return;
    double mean = 0, variance = 0;
    for (size_t state = 0; state < values.size(); ++state) mean += belief[state] * values[state];
    for (size_t state = 0; state < values.size(); ++state)
        variance += belief[state] * (values[state] - mean) * (values[state] - mean);
    ScoreReal(record.real, value, mean, std::sqrt(variance), weight);
}

// Impossible cases have no beliefs to score and are counted apart.
void ScoreBlock(TestRun& run, const CaseBlock& block, const CaseReader& reader, const CaseBeliefs& beliefs)
{
    Tester& tester = *run.tester;
    tester.lines_read += block.num_cases;
    for (int row = 0; row < block.num_cases; ++row) {
        const double weight = block.weights[size_t(row)];
        tester.cases_read += weight;
        if (!beliefs.IsPossible(row)) {
            tester.impossible_cases += weight;
            Warn<6747>(reader.Place(block, row).c_str(), tester.net->name.c_str());
            continue;
        }
        for (size_t i = 0; i < tester.tests.size(); ++i) {
            if (run.asked_at[i] < 0) continue;
            const double value = block.values[i].empty() ? UndefDbl() : block.values[i][size_t(row)];
            ScoreCase(run, i, beliefs.Belief(row, run.asked_at[i]), block.states[i][size_t(row)], value,
                      weight);
        }
    }
}

void RunCases(TestRun& run, const Caseset& cases)
{
    Progress progress("Testing net with cases");
    CaseReader reader(cases, run.read);  // may ask the user, whose answer may be to add states
    PrepareScores(run);
    CaseBeliefs beliefs(*run.tester->net, run.asked, run.read, run.enters);
    CaseBlock block;
    while (progress.Step(reader.Fraction()) && reader.Next(block)) {
        WarnOfMissingColumns(run, reader);
        if (!beliefs.Compute(block)) break;
        ScoreBlock(run, block, reader, beliefs);
    }
    if (IsHalted() || progress.Halted()) Notice<6750>(run.tester->net->name.c_str(), run.tester->cases_read);
}

}  // namespace

void TestWithCaseset(Tester& tester, const Caseset& cases)
{
    // A halt keeps the cases done; any other failure puts everything back as it was before this set.
    TestRun run = PrepareRun(tester);
    std::vector<NodeTest> tests = tester.tests;
    const double cases_read = tester.cases_read, impossible_cases = tester.impossible_cases;
    const int64_t lines_read = tester.lines_read;
    const auto restore = [&] {
        tester.tests = std::move(tests);
        tester.cases_read = cases_read;
        tester.impossible_cases = impossible_cases;
        tester.lines_read = lines_read;
    };
    try {
        RunCases(run, cases);
    } catch (const Unwind& unwind) {
        if (!HasCondition(*unwind.record, ABORTED_CND)) restore();
        throw;
    } catch (...) {
        restore();
        throw;
    }
}

}  // namespace talora
