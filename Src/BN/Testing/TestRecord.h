// What a net tester keeps of one node: how the beliefs of many cases compared with what was true.
//
// All counts are weights of cases.  A record knows nothing of nodes and nets, only of the number of
// states; whoever holds it sees to it that the node still has that many.
//
// Good (1952), Rational decisions; Brier (1950), Verification of forecasts expressed in terms of
// probability; Hanley & McNeil (1982), The meaning and use of the area under a ROC curve.
#pragma once

#include <array>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "Basic/Memory.h"

namespace talora {

// How beliefs are sorted for calibration.  The numbers are those of the interface.
enum BinScheme { FINE_BINS, TENTHS_BINS, TAILS_BINS, GIVEN_BINS };

// The fine scheme has a bin for exactly 0, one for each thousandth, and one for exactly 1.  In the other
// schemes bin k holds the beliefs from edges[k] to below edges[k + 1], the last one also those of 1.
struct CalibrationBins {
    BinScheme scheme = FINE_BINS;
    std::vector<double> edges;  // 0 first, 1 last; empty for the fine scheme

    int Count() const { return scheme == FINE_BINS ? 1002 : int(edges.size()) - 1; }
    int BinOf(double belief) const;
    double LowerEdge(int bin) const;  // for bin = Count(): infinity, as nothing reaches it
    double UpperEdge(int bin) const;
};

constexpr int kMaxGivenBins = 10000;
const std::vector<double>& EdgesOf(BinScheme scheme);  // of the two fixed schemes
CalibrationBins FixedBins(BinScheme scheme);           // all but GIVEN_BINS

// Beliefs so extreme that one would be surprised: at most these, or at least these.
constexpr std::array<float, 4> kSurpriseLimits = {0.01f, 0.1f, 0.9f, 0.99f};
constexpr int kNumLowLimits = 2;

struct RealErrors {
    double cases = 0;
    double sum_absolute = 0, sum_squared = 0, max_absolute = 0;
    double sum_relative = 0, max_relative = 0;
    double sum_deviations = 0, max_deviations = 0;  // error / standard deviation of the belief
    std::array<double, 3> beyond = {};              // deviations in (1,2], in (2,3], above 3
};

struct TestRecord {
    TestRecord(int num_states, CalibrationBins bins);

    int num_states;
    CalibrationBins bins;
    double cases = 0, errors = 0;
    double log_loss = 0;  // may be infinite
    double quadratic_loss = 0, spherical_payoff = 0;
    TableVector<double> confusion;           // actual state x predicted state
    TableVector<double> all, hit;            // state x bin: every case, and those with this actual state
    TableVector<double> limited, surprised;  // state x limit: cases past it, and those that it misled
    RealErrors real;

    double Confusion(int actual, int predicted) const
    {
        return confusion[Cell(actual, predicted, num_states)];
    }
    double All(int state, int bin) const { return all[Cell(state, bin, bins.Count())]; }
    double Hit(int state, int bin) const { return hit[Cell(state, bin, bins.Count())]; }
    double Limited(int state, int limit) const { return limited[Cell(state, limit, 4)]; }
    double Surprised(int state, int limit) const { return surprised[Cell(state, limit, 4)]; }

    static size_t Cell(int row, int column, int columns)
    {
        return size_t(row) * size_t(columns) + size_t(column);
    }
};

// Bytes that a record would take, as a double: they may be very many.
double RecordBytes(int num_states, int num_bins);

// The first of the states with the highest belief.
int PredictedState(std::span<const float> belief);

// Counts a case whose actual state is known.
void ScoreState(TestRecord& record, std::span<const float> belief, int actual, double weight);
// Counts a case whose real value is known, against the mean and standard deviation believed.
void ScoreReal(RealErrors& real, double value, double mean, double std_dev, double weight);

// ---- A state against all the others ----

struct Outcomes {
    double true_positives = 0, false_negatives = 0, false_positives = 0, true_negatives = 0;
};

// Positive: the state was the predicted one.
Outcomes OutcomesOfPrediction(const TestRecord& record, int state);
// Positive: the belief in the state was in this bin or a higher one, 0 to the number of bins.
Outcomes OutcomesFromBin(const TestRecord& record, int state, int bin);

// a / (a + b), undefined when there is nothing to divide by.
double Share(double a, double b);

// The curve of true against false positive rate over all cutoffs at edges of bins, from (0, 0) to (1, 1).
struct RocPoint {
    double cutoff;  // positive: belief at least so large; see CalibrationBins::LowerEdge
    double false_positive_rate, true_positive_rate;
};
// Count() + 1 points, the highest cutoff first; none without both kinds of cases.
std::vector<RocPoint> RocCurve(const TestRecord& record, int state);
double AreaUnder(std::span<const RocPoint> curve);  // by the trapezoid rule; undefined for no curve
bool DipsBelowDiagonal(std::span<const RocPoint> curve);

// ---- Figures by name ----

// A measure of a state; from the prediction, or from beliefs if a cutoff is given (undefined for none),
// rounded down to an edge of a bin.  False if there is no measure of that name.
bool FindStateMeasure(const TestRecord& record, int state, std::string_view name, double cutoff,
                      double* value);
// The same for a measure of the real-value test.
bool FindRealMeasure(const RealErrors& real, std::string_view name, double* value);

}  // namespace talora
