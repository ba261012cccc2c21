// What a test of a net counts, by hand-computed cases; the functions that read it; wrong use of them.
#include "BN/Testing/BnTestNet.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "BN/Testing/TestRecord.h"
#include "Support/TestEnviron.h"

namespace talora {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

struct ScoredCase {
    std::vector<float> belief;
    int actual;
    double weight;
};

TEST(TestRecordTest, ScoresFollowTheirFormulas)
{
    struct Row {
        const char* label;
        std::vector<ScoredCase> cases;
        double weight, errors, log_loss, quadratic_loss, spherical_payoff;  // sums
    };
    const double sqrt_half = std::sqrt(0.5);
    const Row rows[] = {
        {"certain and right", {{{0, 1}, 1, 1}}, 1, 0, 0, 0, 1},
        {"certain and wrong: infinite loss", {{{0, 1}, 0, 1}}, 1, 1, kInf, 2, 0},
        {"infinite from then on", {{{0, 1}, 0, 1}, {{0.5f, 0.5f}, 0, 1}}, 2, 1, kInf, 2.5, sqrt_half},
        {"uniform over two", {{{0.5f, 0.5f}, 0, 1}}, 1, 0, std::log(2), 0.5, sqrt_half},
        {"uniform over four", {{{0.25f, 0.25f, 0.25f, 0.25f}, 2, 1}}, 1, 1, std::log(4), 0.75, 0.5},
        {"the first of tied states is predicted",
         {{{0.25f, 0.375f, 0.375f}, 2, 1}},
         1,
         1,
         std::log(8.0 / 3),
         1 - 0.75 + 0.34375,
         0.375 / std::sqrt(0.34375)},
        {"weights multiply",
         {{{0.75f, 0.25f}, 1, 2.5}},
         2.5,
         2.5,
         2.5 * std::log(4),
         2.5 * 1.125,
         2.5 * 0.25 / std::sqrt(0.625)},
        {"taking cases out again", {{{0.75f, 0.25f}, 0, 1}, {{0.75f, 0.25f}, 0, -1}}, 0, 0, 0, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        TestRecord record(int(row.cases[0].belief.size()), FixedBins(FINE_BINS));
        for (const ScoredCase& c : row.cases) ScoreState(record, c.belief, c.actual, c.weight);
        EXPECT_DOUBLE_EQ(record.cases, row.weight);
        EXPECT_DOUBLE_EQ(record.errors, row.errors);
        EXPECT_DOUBLE_EQ(record.log_loss, row.log_loss);
        EXPECT_NEAR(record.quadratic_loss, row.quadratic_loss, 1e-12);
        EXPECT_NEAR(record.spherical_payoff, row.spherical_payoff, 1e-12);
        const double all = std::accumulate(record.confusion.begin(), record.confusion.end(), 0.0);
        EXPECT_DOUBLE_EQ(all, row.weight);
    }
}

TEST(TestRecordTest, BeliefsGoToTheirBins)
{
    struct Row {
        float belief;
        int fine, tenths, tails, given;  // given: 0 0.25 0.7 1
    };
    const Row rows[] = {
        {0, 0, 0, 0, 0},       {1e-30f, 1, 0, 0, 0},        {0.0009f, 1, 0, 0, 0},
        {0.001f, 2, 0, 0, 0},  {0.0105f, 11, 0, 1, 0},      {0.1f, 101, 1, 3, 0},
        {0.25f, 251, 2, 4, 1}, {0.5f, 501, 5, 5, 1},        {0.7f, 700, 7, 5, 2},
        {0.9f, 900, 9, 7, 2},  {0.9995f, 1000, 9, 9, 2},    {0.99999994f, 1000, 9, 9, 2},
        {1, 1001, 9, 9, 2},    {1.0000001f, 1001, 9, 9, 2},
    };
    const CalibrationBins given = {GIVEN_BINS, {0, 0.25, 0.7, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.belief);
        EXPECT_EQ(FixedBins(FINE_BINS).BinOf(row.belief), row.fine);
        EXPECT_EQ(FixedBins(TENTHS_BINS).BinOf(row.belief), row.tenths);
        EXPECT_EQ(FixedBins(TAILS_BINS).BinOf(row.belief), row.tails);
        EXPECT_EQ(given.BinOf(row.belief), row.given);
    }
    // Every edge is the first number of its bin.
    for (const CalibrationBins& bins : {FixedBins(TENTHS_BINS), FixedBins(TAILS_BINS), given})
        for (int bin = 0; bin < bins.Count(); ++bin) EXPECT_EQ(bins.BinOf(bins.LowerEdge(bin)), bin);
    for (int bin = 2; bin <= 1001; ++bin)
        EXPECT_EQ(FixedBins(FINE_BINS).BinOf(FixedBins(FINE_BINS).LowerEdge(bin)), bin);
}

TEST(TestRecordTest, SurprisesAreCountedAtTheirLimits)
{
    struct Row {
        float belief;
        bool is_actual;
        std::array<double, 4> limited, surprised;
    };
    const Row rows[] = {
        {0, false, {1, 1, 0, 0}, {0, 0, 0, 0}},     {0.01f, true, {1, 1, 0, 0}, {1, 1, 0, 0}},
        {0.011f, true, {0, 1, 0, 0}, {0, 1, 0, 0}}, {0.1f, true, {0, 1, 0, 0}, {0, 1, 0, 0}},
        {0.5f, true, {0, 0, 0, 0}, {0, 0, 0, 0}},   {0.9f, false, {0, 0, 1, 0}, {0, 0, 1, 0}},
        {0.99f, true, {0, 0, 1, 1}, {0, 0, 0, 0}},  {1, false, {0, 0, 1, 1}, {0, 0, 1, 1}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.belief);
        TestRecord record(2, FixedBins(TENTHS_BINS));
        ScoreState(record, std::vector<float>{row.belief, 1 - row.belief}, row.is_actual ? 0 : 1, 1);
        for (int limit = 0; limit < 4; ++limit) {
            EXPECT_EQ(record.Limited(0, limit), row.limited[size_t(limit)]) << limit;
            EXPECT_EQ(record.Surprised(0, limit), row.surprised[size_t(limit)]) << limit;
        }
    }
}

TEST(TestRecordTest, RealErrorsFollowTheirFormulas)
{
    struct Row {
        const char* label;
        double value, mean, std_dev, weight;
        double absolute, squared, relative, deviations;
        std::array<double, 3> beyond;
    };
    const Row rows[] = {
        {"exact", 3, 3, 1, 1, 0, 0, 0, 0, {0, 0, 0}},
        {"exact and sure", 0, 0, 0, 1, 0, 0, 0, 0, {0, 0, 0}},
        {"one deviation is within", 4, 3, 1, 1, 1, 1, 0.25, 1, {0, 0, 0}},
        {"two deviations, weighted", 4, 2, 1, 3, 6, 12, 1.5, 6, {3, 0, 0}},
        {"three", -3, 0, 1, 1, 3, 9, 1, 3, {0, 1, 0}},
        {"more", 4, 0, 1, 1, 4, 16, 1, 4, {0, 0, 1}},
        {"of zero", 0, 1, 2, 1, 1, 1, kInf, 0.5, {0, 0, 0}},
        {"sure and wrong", 2, 1, 0, 1, 1, 1, 0.5, kInf, {0, 0, 1}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        RealErrors real;
        ScoreReal(real, row.value, row.mean, row.std_dev, row.weight);
        EXPECT_EQ(real.cases, row.weight);
        EXPECT_DOUBLE_EQ(real.sum_absolute, row.absolute);
        EXPECT_DOUBLE_EQ(real.sum_squared, row.squared);
        EXPECT_DOUBLE_EQ(real.sum_relative, row.relative);
        EXPECT_DOUBLE_EQ(real.max_relative, row.relative / (row.relative == kInf ? 1 : row.weight));
        EXPECT_DOUBLE_EQ(real.sum_deviations, row.deviations);
        EXPECT_EQ(real.beyond, row.beyond);
    }
}

// Beliefs in state 0, and whether it was the actual state.
TestRecord RecordOf(const std::vector<std::pair<float, bool>>& cases, BinScheme scheme)
{
    TestRecord record(2, FixedBins(scheme));
    for (const auto& [belief, is_actual] : cases)
        ScoreState(record, std::vector<float>{belief, 1 - belief}, is_actual ? 0 : 1, 1);
    return record;
}

// Area under the curve as the chance that a case of the state ranks above another, ties counting half.
double RankedArea(const std::vector<std::pair<float, bool>>& cases)
{
    double wins = 0, pairs = 0;
    for (const auto& [belief, is_actual] : cases)
        for (const auto& [other, other_actual] : cases)
            if (is_actual && !other_actual) {
                ++pairs;
                wins += belief > other ? 1 : belief == other ? 0.5 : 0;
            }
    return wins / pairs;
}

TEST(TestRecordTest, AreaUnderTheCurveIsTheChanceOfRankingRight)
{
    struct Row {
        const char* label;
        std::vector<std::pair<float, bool>> cases;
        bool dips;
    };
    const Row rows[] = {
        {"perfect", {{0.9f, true}, {0.8f, true}, {0.3f, false}, {0, false}}, false},
        {"the wrong way round", {{0.1f, true}, {0.8f, false}}, true},
        {"all alike", {{0.4f, true}, {0.4f, false}, {0.4f, false}}, false},
        {"mixed",
         {{0.95f, true}, {0.5f, false}, {0.5f, true}, {0.2f, false}, {0.1f, true}, {0, false}},
         false},
        {"a dip", {{1, false}, {0.9f, true}, {0.8f, true}, {0.7f, true}, {0.1f, false}}, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const TestRecord record = RecordOf(row.cases, FINE_BINS);
        const std::vector<RocPoint> curve = RocCurve(record, 0);
        EXPECT_EQ(curve.size(), 1003u);
        EXPECT_NEAR(AreaUnder(curve), RankedArea(row.cases), 1e-12);
        EXPECT_EQ(DipsBelowDiagonal(curve), row.dips);
        EXPECT_EQ(curve.back().true_positive_rate, 1);
        EXPECT_EQ(curve.back().false_positive_rate, 1);
    }
    EXPECT_TRUE(RocCurve(RecordOf({{0.5f, true}}, FINE_BINS), 0).empty());
    EXPECT_TRUE(IsUndef(AreaUnder({})));
}

TEST(TestRecordTest, StateMeasuresByEveryName)
{
    // Predicted: 3 hits, 1 miss, 2 false alarms, 4 rejected.
    const TestRecord record = RecordOf({{0.9f, true},
                                        {0.8f, true},
                                        {0.6f, true},
                                        {0.2f, true},
                                        {0.75f, false},
                                        {0.5f, false},
                                        {0.4f, false},
                                        {0.3f, false},
                                        {0.1f, false},
                                        {0, false}},
                                       FINE_BINS);
    const double area = 1 - 1.0 * (1 + 4) / 24;  // 0.9 and 0.8 beat all; 0.6 loses once, 0.2 four times
    const std::map<std::string, double> expected = {
        {"true_positives", 3},
        {"hits", 3},
        {"false_negatives", 1},
        {"misses", 1},
        {"type_II_errors", 1},
        {"false_positives", 2},
        {"false_alarms", 2},
        {"type_I_errors", 2},
        {"true_negatives", 4},
        {"correct_rejections", 4},
        {"sensitivity", 0.75},
        {"true_positive_rate", 0.75},
        {"hit_rate", 0.75},
        {"recall", 0.75},
        {"specificity", 4.0 / 6},
        {"true_negative_rate", 4.0 / 6},
        {"predictive_value", 0.6},
        {"positive_predictive_value", 0.6},
        {"precision", 0.6},
        {"negative_predictive_value", 0.8},
        {"miss_rate", 0.25},
        {"false_negative_rate", 0.25},
        {"fall_out", 2.0 / 6},
        {"false_discovery_rate", 0.4},
        {"accuracy", 0.7},
        {"error_rate", 0.3},
        {"area_under_ROC", area},
        {"AUROC", area},
        {"Gini_score", 2 * area - 1},
        {"ROC_curve_dips", 0},
    };
    for (const auto& [name, value] : expected) {
        double found = UndefDbl();
        EXPECT_TRUE(FindStateMeasure(record, 0, name, UndefDbl(), &found)) << name;
        EXPECT_NEAR(found, value, 1e-12) << name;
    }
    double found = 0;
    EXPECT_FALSE(FindStateMeasure(record, 0, "gini_score", UndefDbl(), &found));
    struct Row {
        double cutoff, hits, false_alarms;
    };
    for (const Row& row : {Row{0, 4, 6}, {0.2, 4, 4}, {0.5, 3, 2}, {0.7, 2, 1}, {0.9005, 0, 0}, {1, 0, 0}}) {
        SCOPED_TRACE(row.cutoff);
        EXPECT_TRUE(FindStateMeasure(record, 0, "hits", row.cutoff, &found));
        EXPECT_EQ(found, row.hits);
        EXPECT_TRUE(FindStateMeasure(record, 0, "false_alarms", row.cutoff, &found));
        EXPECT_EQ(found, row.false_alarms);
    }
    EXPECT_TRUE(FindStateMeasure(record, 0, "precision", 1, &found));
    EXPECT_TRUE(IsUndef(found));
}

}  // namespace
}  // namespace talora
