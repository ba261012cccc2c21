// Interface functions: testing a net with cases, and scoring cases.
#include <algorithm>
#include <cmath>

#include "BN/CaseRuns/CaseScores.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Testing/BnTestNet.h"
#include "BN/Testing/TestReport.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

// The frame of the functions that read what was found for a node.
template <class R, class Body>
R ReadTest(const char* function, const tester_bn* tester, const node_bn* node, R failure,
           Body&& body) noexcept
{
    return CallApi2(function, tester, node, failure,
                    [&]() -> R { return body(TestOf(const_cast<tester_bn&>(*tester), *node).record); });
}

double AverageOf(const char* function, const tester_bn* tester, const node_bn* node,
                 double TestRecord::*sum) noexcept
{
    return ReadTest(function, tester, node, UndefDbl(),
                    [&](const TestRecord& record) { return PerCase(record.*sum, record.cases); });
}

node_bn* NthOf(const std::vector<node_bn*>& nodes, int index)
{
    return index >= 0 && size_t(index) < nodes.size() ? nodes[size_t(index)] : nullptr;
}

void CheckBin(const TestRecord& record, const node_bn* node, int bin)
{
    if (bin < 0 || bin >= record.bins.Count()) Fail<6743>(bin, node->name.c_str(), record.bins.Count() - 1);
}

int SurpriseLimit(double limit)
{
    const auto found = std::find(kSurpriseLimits.begin(), kSurpriseLimits.end(), float(limit));
    if (found == kSurpriseLimits.end()) Fail<6751>(limit);
    return int(found - kSurpriseLimits.begin());
}

// Sets what a caller wants to know besides the result; NULL is not wanted.
void Give(double* place, double value)
{
    if (place != nullptr) *place = value;
}

// A value as callers get it.
double ForCaller(double value)
{
    return std::isinf(value) ? std::copysign(InfinityDbl(), value) : value;
}

}  // namespace

tester_bn* NewNetTester_bn(const nodelist_bn* test_nodes, const nodelist_bn* unobserved_nodes, int tests)
{
    return CallApi2(__func__, With(test_nodes, EntriesOf(test_nodes), EntriesOf(unobserved_nodes)),
                    unobserved_nodes, static_cast<tester_bn*>(nullptr), [&] {
                        if (tests != -1) Fail<6733>(tests);
                        return NewTester(test_nodes->nodes, unobserved_nodes->nodes);
                    });
}

void DeleteNetTester_bn(tester_bn* tester)
{
    if (tester == nullptr) return;
    CallApi(__func__, tester, [&] { DeleteTester(tester); });
}

void TestWithCaseset_bn(tester_bn* tester, const caseset_cs* cases)
{
    CallApi2(__func__, tester, cases, [&] { TestWithCaseset(*tester, *cases); });
}

void ClearNetTest_bn(tester_bn* tester)
{
    CallApi(__func__, tester, [&] { ClearTester(*tester); });
}

node_bn* GetTestNode_bn(const tester_bn* tester, int index)
{
    return CallApi(__func__, tester, static_cast<node_bn*>(nullptr), [&]() -> node_bn* {
        if (index < 0 || size_t(index) >= tester->tests.size()) return nullptr;
        return tester->tests[size_t(index)].node;
    });
}

node_bn* GetTestUnobservedNode_bn(const tester_bn* tester, int index)
{
    return CallApi(__func__, tester, static_cast<node_bn*>(nullptr),
                   [&] { return NthOf(tester->unobserved, index); });
}

// ---- Bins ----

void SetTestBins_bn(tester_bn* tester, const node_bn* node, testbins_bn scheme, const double* edges,
                    int num_edges)
{
    CallApi2(__func__, tester, node, [&] {
        const bool is_given = scheme == GIVEN_TEST_BINS;
        if (is_given && (edges == nullptr || num_edges < 0)) Fail<6778>(num_edges);
        SetTestBins(*tester, *node, scheme, {edges, is_given ? size_t(num_edges) : 0});
    });
}

testbins_bn GetTestBinScheme_bn(const tester_bn* tester, const node_bn* node)
{
    return ReadTest(__func__, tester, node, testbins_bn(FINE_TEST_BINS),
                    [](const TestRecord& record) { return testbins_bn(record.bins.scheme); });
}

int GetTestNumBins_bn(const tester_bn* tester, const node_bn* node)
{
    return ReadTest(__func__, tester, node, -1, [](const TestRecord& record) { return record.bins.Count(); });
}

double GetTestBinEdges_bn(const tester_bn* tester, const node_bn* node, int bin, double* upper)
{
    Give(upper, UndefDbl());
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        CheckBin(record, node, bin);
        Give(upper, record.bins.UpperEdge(bin));
        return record.bins.LowerEdge(bin);
    });
}

// ---- Figures ----

double GetTestNumCases_bn(const tester_bn* tester, const node_bn* node, double* all, double* impossible)
{
    Give(all, UndefDbl());
    Give(impossible, UndefDbl());
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        Give(all, tester->cases_read);
        Give(impossible, tester->impossible_cases);
        return record.cases;
    });
}

double GetTestErrorRate_bn(const tester_bn* tester, const node_bn* node)
{
    return AverageOf(__func__, tester, node, &TestRecord::errors);
}

double GetTestLogLoss_bn(const tester_bn* tester, const node_bn* node)
{
    return AverageOf(__func__, tester, node, &TestRecord::log_loss);
}

double GetTestQuadraticLoss_bn(const tester_bn* tester, const node_bn* node)
{
    return AverageOf(__func__, tester, node, &TestRecord::quadratic_loss);
}

double GetTestSphericalPayoff_bn(const tester_bn* tester, const node_bn* node)
{
    return AverageOf(__func__, tester, node, &TestRecord::spherical_payoff);
}

double GetTestConfusion_bn(const tester_bn* tester, const node_bn* node, state_bn predicted, state_bn actual)
{
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        CheckState(*node, predicted);
        CheckState(*node, actual);
        return record.Confusion(actual, predicted);
    });
}

double GetTestCalibration_bn(const tester_bn* tester, const node_bn* node, state_bn state, int bin,
                             double* actual)
{
    Give(actual, UndefDbl());
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        CheckState(*node, state);
        CheckBin(record, node, bin);
        Give(actual, record.Hit(state, bin));
        return record.All(state, bin);
    });
}

double GetTestSurprise_bn(const tester_bn* tester, const node_bn* node, state_bn state, double limit,
                          double* surprised)
{
    Give(surprised, UndefDbl());
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        CheckState(*node, state);
        const int at = SurpriseLimit(limit);
        Give(surprised, record.Surprised(state, at));
        return record.Limited(state, at);
    });
}

double GetTestStateMeasure_bn(const tester_bn* tester, const node_bn* node, state_bn state,
                              const char* measure, double cutoff)
{
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        CheckState(*node, state);
        if (!IsUndef(cutoff) && !(cutoff >= 0 && cutoff <= 1)) Fail<6746>(cutoff);
        const std::string name = TextArgument(measure);
        double value = UndefDbl();
        if (!FindStateMeasure(record, state, name, cutoff, &value)) Fail<6744>(name.c_str());
        return value;
    });
}

bool_vx GetTestRocPoint_bn(const tester_bn* tester, const node_bn* node, state_bn state, int point,
                           double* cutoff, double* false_positive_rate, double* true_positive_rate)
{
    for (double* place : {cutoff, false_positive_rate, true_positive_rate}) Give(place, UndefDbl());
    return ReadTest(__func__, tester, node, bool_vx(false), [&](const TestRecord& record) -> bool_vx {
        CheckState(*node, state);
        const std::vector<RocPoint> curve = RocCurve(record, state);
        if (point < 0 || size_t(point) >= curve.size()) return false;
        Give(cutoff, ForCaller(curve[size_t(point)].cutoff));
        Give(false_positive_rate, curve[size_t(point)].false_positive_rate);
        Give(true_positive_rate, curve[size_t(point)].true_positive_rate);
        return true;
    });
}

double GetTestRealMeasure_bn(const tester_bn* tester, const node_bn* node, const char* measure)
{
    return ReadTest(__func__, tester, node, UndefDbl(), [&](const TestRecord& record) {
        const std::string name = TextArgument(measure);
        double value = UndefDbl();
        if (!FindRealMeasure(record.real, name, &value)) Fail<6745>(name.c_str());
        return ForCaller(value);
    });
}

// ---- The report ----

const char* ReportNetTest_bn(const tester_bn* tester, const node_bn* node)
{
    return CallApi(__func__, With(tester, node), static_cast<const char*>(nullptr), [&] {
        if (node != nullptr) CheckHandle(node);
        std::string& report = const_cast<tester_bn*>(tester)->report;
        report = node != nullptr ? TestReport(TestOf(const_cast<tester_bn&>(*tester), *node))
                                 : TestReport(const_cast<tester_bn&>(*tester));
        return report.c_str();
    });
}

// ---- Scoring ----

double WriteCaseBeliefs_bn(const caseset_cs* cases, const nodelist_bn* nodes, stream_vx* output,
                           const char* options)
{
    return CallApi2(__func__, With(cases, EntriesOf(nodes), output), nodes, UndefDbl(), [&] {
        CheckHandle(output);
        const uint32_t words = OptionsArgument(options, {"jsonl", "whole"});
        const ScoreOptions wanted = {(words & 1) != 0, (words & 2) != 0};
        return WriteCaseBeliefs(*cases, nodes->nodes, *output, wanted);
    });
}
