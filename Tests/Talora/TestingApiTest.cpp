// Testing a net and scoring cases through the interface: what is refused, what accumulates, what reports say.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "Support/Golden.h"
#include "Support/TestEnviron.h"

namespace {

// Rain makes Grass wet and fills Level, a continuous node with three intervals; beliefs are easily worked
// out.
//   P(Rain = yes) = 0.25; P(Grass = wet | yes) = 1, P(wet | no) = 0.5
//   P(Level | yes) = 0, 0.25, 0.75; P(Level | no) = 0.5, 0.5, 0, over 0..2, 2..4 and 4..8
class TestingApiTest : public testing::Test {
protected:
    void SetUp() override
    {
        const state_bn every[] = {EVERY_STATE};
        const state_bn yes[] = {0}, no[] = {1};
        const prob_bn rain_row[] = {0.25f, 0.75f}, half[] = {0.5f, 0.5f}, wet[] = {1, 0};
        const prob_bn filled[] = {0, 0.25f, 0.75f}, empty[] = {0.5f, 0.5f, 0};
        SetNodeStateNames_bn(rain_, "yes, no");
        SetNodeStateNames_bn(grass_, "wet, dry");
        const double levels[] = {0, 2, 4, 8};
        SetNodeLevels_bn(level_, 3, levels);
        SetNodeTitle_bn(rain_, "Rain_in the\tnight, which may be heavy at times");
        AddLink_bn(rain_, grass_);
        AddLink_bn(rain_, level_);
        SetNodeProbs_bn(rain_, every, rain_row);
        SetNodeProbs_bn(grass_, yes, wet);
        SetNodeProbs_bn(grass_, no, half);
        SetNodeProbs_bn(level_, yes, filled);
        SetNodeProbs_bn(level_, no, empty);
        ASSERT_EQ(env_.Taken(WARNING_SEVERITY), 0) << env_.Message();
    }

    nodelist_bn* List(const std::vector<node_bn*>& nodes)
    {
        nodelist_bn* list = NewNodeList2_bn(int(nodes.size()), net_);
        for (size_t i = 0; i < nodes.size(); ++i) SetNthNode_bn(list, int(i), nodes[i]);
        return list;
    }

    tester_bn* Tester(const std::vector<node_bn*>& nodes, const std::vector<node_bn*>& unobserved = {})
    {
        return NewNetTester_bn(List(nodes), List(unobserved), -1);
    }

    caseset_cs* Cases(const std::string& lines, double degree = 1)
    {
        stream_vx* stream = NewStreamOf(env_, "cases", "// ~->[CASE-1]->~\n\n" + lines);
        caseset_cs* cases = NewCaseset_cs("", env_);
        AddFileToCaseset_cs(cases, stream, degree, nullptr);
        return cases;
    }

    TestEnviron env_;
    net_bn* net_ = NewNet_bn("Weather", env_);
    node_bn* rain_ = NewNode_bn("Rain", 2, net_);
    node_bn* grass_ = NewNode_bn("Grass", 2, net_);
    node_bn* level_ = NewNode_bn("Level", 0, net_);
};

const char* const kMixed =
    "IDnum NumCases Rain Grass Level\n"
    "1 1 yes wet 5\n"  // P(yes | wet) = 0.4, so "no" is predicted
    "2 2 no  wet 1\n"
    "3 1 no  dry 3\n"  // P(no | dry) = 1
    "4 1 *   dry 2.5\n";

TEST_F(TestingApiTest, FiguresOfAFewCases)
{
    tester_bn* tester = Tester({rain_}, {level_});
    TestWithCaseset_bn(tester, Cases(kMixed));
    double all = 0, impossible = 0;
    EXPECT_EQ(GetTestNumCases_bn(tester, rain_, &all, &impossible), 4);
    EXPECT_EQ(all, 5);
    EXPECT_EQ(impossible, 0);
    EXPECT_EQ(GetTestErrorRate_bn(tester, rain_), 0.25);
    EXPECT_NEAR(GetTestLogLoss_bn(tester, rain_), -(std::log(0.4) + 2 * std::log(0.6)) / 4, 1e-7);
    EXPECT_NEAR(GetTestQuadraticLoss_bn(tester, rain_), (0.72 + 2 * 0.32) / 4, 1e-7);
    EXPECT_NEAR(GetTestSphericalPayoff_bn(tester, rain_), ((0.4 + 2 * 0.6) / std::sqrt(0.52) + 1) / 4, 1e-7);
    EXPECT_EQ(GetTestConfusion_bn(tester, rain_, 1, 0), 1);
    EXPECT_EQ(GetTestConfusion_bn(tester, rain_, 1, 1), 3);
    double actual = 0;
    EXPECT_EQ(GetTestCalibration_bn(tester, rain_, 0, 0, &actual), 1);  // exactly 0: the dry case
    EXPECT_EQ(GetTestCalibration_bn(tester, rain_, 1, 1001, &actual), 1);
    EXPECT_EQ(actual, 1);
    double cutoff = 0, false_rate = 0, true_rate = 0;
    int num_points = 0;
    while (GetTestRocPoint_bn(tester, rain_, 0, num_points, &cutoff, &false_rate, &true_rate)) ++num_points;
    EXPECT_EQ(num_points, 1003);
    EXPECT_NEAR(GetTestStateMeasure_bn(tester, rain_, 0, "AUROC", GetUndefDbl_vx()), 2.0 / 3, 1e-12);
    EXPECT_EQ(GetTestStateMeasure_bn(tester, rain_, 0, "hits", 0.3), 1);
    EXPECT_EQ(GetTestNode_bn(tester, 0), rain_);
    EXPECT_EQ(GetTestNode_bn(tester, 1), nullptr);
    EXPECT_EQ(GetTestUnobservedNode_bn(tester, 0), level_);
    EXPECT_FALSE(HasNodeFinding_bn(grass_));

    // A second set adds to the first; clearing forgets both.
    TestWithCaseset_bn(tester, Cases("Rain Grass\nyes wet\n", 3));
    EXPECT_EQ(GetTestNumCases_bn(tester, rain_, nullptr, nullptr), 7);
    EXPECT_EQ(GetTestConfusion_bn(tester, rain_, 1, 0), 4);
    ClearNetTest_bn(tester);
    EXPECT_EQ(GetTestNumCases_bn(tester, rain_, &all, nullptr), 0);
    EXPECT_EQ(all, 0);
    EXPECT_EQ(GetTestErrorRate_bn(tester, rain_), GetUndefDbl_vx());
}

TEST_F(TestingApiTest, RealValuesAgainstMeanAndDeviation)
{
    // Given yes: values 3 and 6 with 0.25 and 0.75: mean 5.25, variance 1.6875.
    tester_bn* tester = Tester({level_});
    TestWithCaseset_bn(tester, Cases("Rain Level\nyes 5.25\nyes 3.25\nno *\n"));
    const auto figure = [&](const char* name) { return GetTestRealMeasure_bn(tester, level_, name); };
    EXPECT_EQ(figure("cases"), 2);
    EXPECT_NEAR(figure("mean_absolute_error"), 1, 1e-6);
    EXPECT_NEAR(figure("max_absolute_error"), 2, 1e-6);
    EXPECT_NEAR(figure("rms_error"), std::sqrt(2), 1e-6);
    EXPECT_NEAR(figure("max_relative_error"), 2 / 3.25, 1e-6);
    EXPECT_NEAR(figure("max_deviations"), 2 / std::sqrt(1.6875), 1e-6);
    EXPECT_EQ(figure("within_1_deviation"), 1);
    EXPECT_EQ(figure("from_1_to_2_deviations"), 1);
    EXPECT_EQ(GetTestConfusion_bn(tester, level_, 2, 1), 1);
}

TEST_F(TestingApiTest, ImpossibleCasesAreNamedAndLeftOut)
{
    tester_bn* tester = Tester({grass_});
    SetNodeProbs_bn(rain_, nullptr, std::vector<prob_bn>{0, 1}.data());
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    tester_bn* second = Tester({level_});
    caseset_cs* cases = Cases("IDnum Rain Grass Level\n1 no wet 1\n2 yes wet 5\n");
    TestWithCaseset_bn(tester, cases);
    EXPECT_EQ(env_.Taken(WARNING_SEVERITY), 6747);
    EXPECT_NE(env_.Message().find("case 2 on line 5"), std::string::npos) << env_.Message();
    double all = 0, impossible = 0;
    EXPECT_EQ(GetTestNumCases_bn(tester, grass_, &all, &impossible), 1);
    EXPECT_EQ(all, 2);
    EXPECT_EQ(impossible, 1);
    DeleteNetTester_bn(second);
}

TEST_F(TestingApiTest, WhatIsRefused)
{
    net_bn* other_net = NewNet_bn("Other", env_);
    node_bn* stranger = NewNode_bn("Stranger", 2, other_net);
    node_bn* utility = NewNode_bn("Gain", 0, net_);
    SetNodeKind_bn(utility, UTILITY_NODE);
    struct Row {
        const char* label;
        std::vector<node_bn*> nodes, unobserved;
        int tests, error;
    };
    const Row rows[] = {
        {"no node", {}, {}, -1, 6734},
        {"twice", {rain_, rain_}, {}, -1, 6180},
        {"of two nets", {rain_, stranger}, {}, -1, 6735},
        {"unobserved of another net", {rain_}, {stranger}, -1, 6735},
        {"utility node", {utility}, {}, -1, 6736},
        {"tests", {rain_}, {}, 0, 6733},
        {"NULL in the list", {rain_, nullptr}, {}, -1, 5150},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(NewNetTester_bn(List(row.nodes), List(row.unobserved), row.tests), nullptr);
        EXPECT_EQ(env_.Taken(), row.error) << env_.Message();
    }
    tester_bn* tester = Tester({rain_});
    const double undefined = GetUndefDbl_vx();
    const auto expect = [&](const char* label, double value, int error) {
        EXPECT_EQ(value, undefined) << label;
        EXPECT_EQ(env_.Taken(), error) << label << ": " << env_.Message();
    };
    expect("no test node", GetTestErrorRate_bn(tester, grass_), 6732);
    EXPECT_EQ(env_.Message(),
              "node 'Grass' was not one of the nodes tested (i.e. not in the test_nodes list passed to "
              "NewNetTester_bn)");
    expect("predicted", GetTestConfusion_bn(tester, rain_, 2, 0), 6122);
    expect("actual", GetTestConfusion_bn(tester, rain_, 0, -1), 6122);
    expect("bin", GetTestCalibration_bn(tester, rain_, 0, 1002, nullptr), 6743);
    expect("limit", GetTestSurprise_bn(tester, rain_, 0, 0.5, nullptr), 6751);
    expect("measure", GetTestStateMeasure_bn(tester, rain_, 0, "luck", undefined), 6744);
    expect("cutoff", GetTestStateMeasure_bn(tester, rain_, 0, "hits", 1.5), 6746);
    expect("real measure", GetTestRealMeasure_bn(tester, rain_, "luck"), 6745);
}

TEST_F(TestingApiTest, BinsAreChosenBeforeTheFirstCase)
{
    tester_bn* tester = Tester({rain_});
    const double edges[] = {0.25, 0.5, 1}, falling[] = {0.5, 0.25}, outside[] = {0.5, 1.5};
    SetTestBins_bn(tester, rain_, GIVEN_TEST_BINS, falling, 2);
    EXPECT_EQ(env_.Taken(), 6741);
    SetTestBins_bn(tester, rain_, GIVEN_TEST_BINS, outside, 2);
    EXPECT_EQ(env_.Taken(), 6741);
    SetTestBins_bn(tester, rain_, GIVEN_TEST_BINS, nullptr, 2);
    EXPECT_EQ(env_.Taken(), 6778);
    SetTestBins_bn(tester, rain_, testbins_bn(4), nullptr, 0);
    EXPECT_EQ(env_.Taken(), 6739);
    SetTestBins_bn(tester, rain_, GIVEN_TEST_BINS, edges, 3);
    EXPECT_EQ(GetTestBinScheme_bn(tester, rain_), GIVEN_TEST_BINS);
    EXPECT_EQ(GetTestNumBins_bn(tester, rain_), 3);
    double upper = 0;
    EXPECT_EQ(GetTestBinEdges_bn(tester, rain_, 0, &upper), 0);
    EXPECT_EQ(upper, 0.25);
    EXPECT_EQ(GetTestBinEdges_bn(tester, rain_, 2, &upper), 0.5);
    TestWithCaseset_bn(tester, Cases(kMixed));
    EXPECT_EQ(GetTestCalibration_bn(tester, rain_, 0, 1, nullptr), 0);
    SetTestBins_bn(tester, rain_, TENTHS_TEST_BINS, nullptr, 0);
    EXPECT_EQ(env_.Taken(), 6742);
}

TEST_F(TestingApiTest, NodesThatChangeBetweenRuns)
{
    tester_bn* tester = Tester({grass_});
    SetNodeStateNames_bn(grass_, "soaked, dry");  // nothing counted yet: it is tested as it is now
    TestWithCaseset_bn(tester, Cases("Rain Grass\nyes soaked\n"));
    EXPECT_EQ(GetTestErrorRate_bn(tester, grass_), 0);
    SetNodeStateNames_bn(grass_, "wet, dry");
    EXPECT_EQ(GetTestErrorRate_bn(tester, grass_), GetUndefDbl_vx());
    EXPECT_EQ(env_.Taken(), 6738);
    SetNodeStateNames_bn(grass_, "soaked, dry");
    EXPECT_EQ(GetTestErrorRate_bn(tester, grass_), 0);
    DeleteNode_bn(grass_);
    TestWithCaseset_bn(tester, Cases("Rain\nyes\n"));
    EXPECT_EQ(env_.Taken(), 6737);
    EXPECT_EQ(ReportNetTest_bn(tester, nullptr), nullptr);
    EXPECT_EQ(env_.Taken(), 6737);
}

bool_vx StopAtOnce(environ_vx*, const char*, double, void*)
{
    return false;
}

TEST_F(TestingApiTest, HaltsAndErrorsKeepWhatWasCounted)
{
    tester_bn* tester = Tester({rain_}, {level_});
    TestWithCaseset_bn(tester, Cases(kMixed));
    SetHaltFlag_vx(env_, true);
    TestWithCaseset_bn(tester, Cases(kMixed));
    SetHaltFlag_vx(env_, false);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
    EXPECT_EQ(GetTestNumCases_bn(tester, rain_, nullptr, nullptr), 4);
    stream_vx* missing = NewFileStream_vx("no/such/file.cas", env_, nullptr);
    caseset_cs* cases = Cases(kMixed);
    AddFileToCaseset_cs(cases, missing, 1, nullptr);
    TestWithCaseset_bn(tester, cases);
    EXPECT_NE(env_.Taken(), 0);
    EXPECT_EQ(GetTestNumCases_bn(tester, rain_, nullptr, nullptr), 4);
    SetProgressHandler_vx(env_, StopAtOnce, nullptr);
    TestWithCaseset_bn(tester, Cases(kMixed));
    SetProgressHandler_vx(env_, nullptr, nullptr);
    ClearErrors_vx(env_, INTERNAL_SEVERITY);
}

// ---- Reports ----

TEST_F(TestingApiTest, ReportsReadAsStated)
{
    tester_bn* tester = Tester({rain_, level_});
    ExpectGolden("test-no-cases.txt", ReportNetTest_bn(tester, rain_));
    TestWithCaseset_bn(tester, Cases(kMixed));
    ExpectGolden("test-two-nodes.txt", ReportNetTest_bn(tester, nullptr));
    const double edges[] = {0.5};
    tester_bn* coarse = Tester({level_});
    SetTestBins_bn(coarse, level_, GIVEN_TEST_BINS, edges, 1);
    SetNodeUserField_bn(level_, "target_state", "#2", 2, 0);
    TestWithCaseset_bn(coarse, Cases("Rain Level\nyes 5\nyes 3\nno 1\nno 7\n"));
    const std::string text = ReportNetTest_bn(coarse, level_);
    EXPECT_EQ(env_.Taken(WARNING_SEVERITY), 6749);  // a number is no name
    EXPECT_EQ(
        env_.Message(),
        "Node 'Level' has a target_state user-field refering to state '#2', but it doesn't have a state "
        "with that name");
    SetNodeStateNames_bn(level_, "low, middle, high");
    ClearNetTest_bn(coarse);
    SetNodeUserField_bn(level_, "target_state", "high", 4, 0);
    TestWithCaseset_bn(coarse, Cases("Rain Level\nyes 5\nyes 3\nno 1\nno 7\n"));
    ExpectGolden("test-target-state.txt", ReportNetTest_bn(coarse, level_));
}

int AnswerNo(environ_vx*, const char* question, const char*, const char*, void* data)
{
    *static_cast<std::string*>(data) = question;
    return 1;
}

TEST_F(TestingApiTest, LargeMatricesAreAskedFor)
{
    node_bn* large = NewNode_bn("Large", 31, net_);
    tester_bn* tester = Tester({large});
    TestWithCaseset_bn(tester, Cases("Large\n#3\n"));
    EXPECT_NE(std::string(ReportNetTest_bn(tester, large)).find("\nConfusion:\n"), std::string::npos);
    std::string asked;
    SetQuestionHandler_vx(env_, AnswerNo, &asked);
    EXPECT_EQ(std::string(ReportNetTest_bn(tester, large)).find("\nConfusion:\n"), std::string::npos);
    SetQuestionHandler_vx(env_, nullptr, nullptr);
    EXPECT_EQ(asked, "Print large 31 x 31 confusion matrix for 'Large'?");
}

// ---- Scoring ----

TEST_F(TestingApiTest, ScoringWritesCasesWithTheirBeliefs)
{
    struct Row {
        const char* label;
        std::string cases;
        const char* options;
        const char* text;
    };
    const std::string mixed = "IDnum\tRain\tWard\tGrass\n7\tyes\tA\tdry\n8\t*\tB\twet\n";
    const Row rows[] = {
        {"its own value is left out", mixed, "",
         "// ~->[CASE-1]->~\n\nIDnum\tRain\tWard\tGrass\tP(Rain=yes)\tP(Rain=no)\n"
         "7\tyes\tA\tdry\t0\t1\n8\t*\tB\twet\t0.4\t0.6\n"},
        {"entered whole: impossible", mixed, "whole",
         "// ~->[CASE-1]->~\n\nIDnum\tRain\tWard\tGrass\tP(Rain=yes)\tP(Rain=no)\n"
         "7\tyes\tA\tdry\t*\t*\n8\t*\tB\twet\t0.4\t0.6\n"},
        {"commas and line ends", "Rain,Grass\r\n*,dry\r\n", nullptr,
         "// ~->[CASE-1]->~\n\nRain,Grass,P(Rain=yes),P(Rain=no)\n*,dry,0,1\n"},
        {"JSON lines", "NumCases Grass\n2 dry\n", "jsonl",
         "{\"case\":1,\"id\":null,\"weight\":2,\"log_probability\":-0.9808292,\"beliefs\":{\"Rain\":{\"yes\":0,"
         "\"no\":1}}}\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        stream_vx* output = NewMemoryStream_vx("scored", env_, nullptr);
        WriteCaseBeliefs_bn(Cases(row.cases), List({rain_}), output, row.options);
        EXPECT_EQ(env_.Taken(), 0) << env_.Message();
        std::string text = GetStreamContents_vx(output, nullptr);
        const size_t digits = text.find("-0.98082");
        if (digits != std::string::npos) text.replace(digits, text.find(',', digits) - digits, "-0.9808292");
        EXPECT_EQ(text, row.text);
    }
    stream_vx* output = NewMemoryStream_vx("scored", env_, nullptr);
    EXPECT_EQ(WriteCaseBeliefs_bn(Cases(mixed), List({}), output, nullptr), GetUndefDbl_vx());
    EXPECT_EQ(env_.Taken(), 6752);
    WriteCaseBeliefs_bn(Cases(mixed), List({rain_}), output, "yaml");
    EXPECT_EQ(env_.Taken(), 5628);
}

}  // namespace
