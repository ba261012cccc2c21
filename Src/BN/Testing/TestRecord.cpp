// What a test counts for one node, and the figures made from it: scoring rules, calibration, ROC curves.
#include "BN/Testing/TestRecord.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace talora {

namespace {

constexpr double kInfinite = std::numeric_limits<double>::infinity();
constexpr int kFineSteps = 1000;
constexpr double kRounding = 1e-12;  // of a rate, when two are compared

}  // namespace

// ---- Bins ----

const std::vector<double>& EdgesOf(BinScheme scheme)
{
    static const auto* tenths = new std::vector<double>{0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1};
    static const auto* tails =
        new std::vector<double>{0, 0.01, 0.05, 0.1, 0.25, 0.5, 0.75, 0.9, 0.95, 0.99, 1};
    return scheme == TENTHS_BINS ? *tenths : *tails;
}

CalibrationBins FixedBins(BinScheme scheme)
{
    return {scheme, scheme == FINE_BINS ? std::vector<double>() : EdgesOf(scheme)};
}

// Fine bins by arithmetic, others by their edges; a belief at an edge belongs to the bin above.
int CalibrationBins::BinOf(double belief) const
{
    if (scheme == FINE_BINS) {
        if (belief <= 0) return 0;
        if (belief >= 1) return kFineSteps + 1;
        return int(std::floor(kFineSteps * belief + 1e-10)) + 1;
    }
    // Beliefs are floats: one that is meant to be at an edge is the float nearest to it.
    const auto above = std::upper_bound(edges.begin() + 1, edges.end() - 1, float(belief),
                                        [](float value, double edge) { return value < float(edge); });
    return int(above - edges.begin()) - 1;
}

// Of the bin behind the last: infinite, so that as a cutoff it counts nothing as positive.
double CalibrationBins::LowerEdge(int bin) const
{
    if (bin >= Count()) return kInfinite;
    if (scheme != FINE_BINS) return edges[bin];
    return bin == 0 ? 0 : double(bin - 1) / kFineSteps;
}

double CalibrationBins::UpperEdge(int bin) const
{
    if (scheme != FINE_BINS) return edges[bin + 1];
    return std::min(1.0, double(bin) / kFineSteps);
}

// ---- Counting ----

double RecordBytes(int num_states, int num_bins)
{
    const double n = num_states;
    return sizeof(double) * (n * n + 2 * n * num_bins + 2 * n * double(kSurpriseLimits.size()));
}

TestRecord::TestRecord(int states, CalibrationBins binning)
    : num_states(states),
      bins(std::move(binning)),
      confusion(size_t(states) * size_t(states)),
      all(size_t(states) * size_t(bins.Count())),
      hit(all.size()),
      limited(size_t(states) * kSurpriseLimits.size()),
      surprised(limited.size())
{}

int PredictedState(std::span<const float> belief)
{
    return int(std::max_element(belief.begin(), belief.end()) - belief.begin());
}

namespace {

// The belief in one state: into its bin, and under each limit of surprise that it passes.
void CountBelief(TestRecord& record, int state, float belief, bool is_actual, double weight)
{
    const size_t cell = TestRecord::Cell(state, record.bins.BinOf(belief), record.bins.Count());
    record.all[cell] += weight;
    if (is_actual) record.hit[cell] += weight;
    for (int limit = 0; limit < int(kSurpriseLimits.size()); ++limit) {
        const bool is_low = limit < kNumLowLimits;
        if (is_low ? belief > kSurpriseLimits[limit] : belief < kSurpriseLimits[limit]) continue;
        const size_t at = TestRecord::Cell(state, limit, int(kSurpriseLimits.size()));
        record.limited[at] += weight;
        if (is_actual == is_low) record.surprised[at] += weight;
    }
}

}  // namespace

// Confusion and error rate by the predicted state; logarithmic, quadratic and spherical score by all beliefs
// (Good 1952; Brier 1950).
void ScoreState(TestRecord& record, std::span<const float> belief, int actual, double weight)
{
    const int predicted = PredictedState(belief);
    record.confusion[TestRecord::Cell(actual, predicted, record.num_states)] += weight;
    record.cases += weight;
    if (predicted != actual) record.errors += weight;
    double sum_squares = 0;
    for (int state = 0; state < record.num_states; ++state) {
        CountBelief(record, state, belief[state], state == actual, weight);
        sum_squares += double(belief[state]) * belief[state];
    }
    const double truth = belief[actual];
    if (truth <= 0)
        record.log_loss = kInfinite;
    else
        record.log_loss -= weight * std::log(truth);
    record.quadratic_loss += weight * (1 - 2 * truth + sum_squares);
    record.spherical_payoff += weight * truth / std::sqrt(sum_squares);
}

// 1. The error itself.
void ScoreReal(RealErrors& real, double value, double mean, double std_dev, double weight)
{
    const double error = std::fabs(value - mean);
    real.cases += weight;
    real.sum_absolute += weight * error;
    real.sum_squared += weight * error * error;
    real.max_absolute = std::max(real.max_absolute, error);
    // 2. Relative to the value; infinite beside a value of 0.
    if (value == 0 && error != 0) {
        real.sum_relative = real.max_relative = kInfinite;
    } else if (value != 0) {
        const double relative = std::fabs(error / value);
        real.sum_relative += weight * relative;
        real.max_relative = std::max(real.max_relative, relative);
    }
    // 3. In standard deviations; infinite where the belief was certain and wrong.
    if (std_dev == 0 && error != 0) {
        real.sum_deviations = real.max_deviations = kInfinite;
        real.beyond[2] += weight;
        return;
    }
    const double deviations = error == 0 ? 0 : error / std_dev;
    real.sum_deviations += weight * deviations;
    real.max_deviations = std::max(real.max_deviations, deviations);
    if (deviations > 1) real.beyond[deviations > 3 ? 2 : deviations > 2 ? 1 : 0] += weight;
}

// ---- A state against all the others ----

// a of a and b together.
double Share(double a, double b)
{
    return a + b != 0 ? a / (a + b) : UndefDbl();
}

// Positive: the state was the one predicted.
Outcomes OutcomesOfPrediction(const TestRecord& record, int state)
{
    Outcomes outcomes;
    for (int actual = 0; actual < record.num_states; ++actual)
        for (int predicted = 0; predicted < record.num_states; ++predicted) {
            const double weight = record.Confusion(actual, predicted);
            double& place = actual == state
                                ? (predicted == state ? outcomes.true_positives : outcomes.false_negatives)
                                : (predicted == state ? outcomes.false_positives : outcomes.true_negatives);
            place += weight;
        }
    return outcomes;
}

// Positive: the belief in the state was in this bin or a higher one.
Outcomes OutcomesFromBin(const TestRecord& record, int state, int first_bin)
{
    Outcomes outcomes;
    for (int bin = 0; bin < record.bins.Count(); ++bin) {
        const double hit = record.Hit(state, bin), other = record.All(state, bin) - hit;
        (bin >= first_bin ? outcomes.true_positives : outcomes.false_negatives) += hit;
        (bin >= first_bin ? outcomes.false_positives : outcomes.true_negatives) += other;
    }
    return outcomes;
}

// One point per cutoff, from the highest down: each adds the cases of one bin to the positives.
std::vector<RocPoint> RocCurve(const TestRecord& record, int state)
{
    const Outcomes total = OutcomesFromBin(record, state, 0);
    const double positives = total.true_positives, negatives = total.false_positives;
    std::vector<RocPoint> curve;
    if (positives <= 0 || negatives <= 0) return curve;
    const int num_bins = record.bins.Count();
    double hits = 0, others = 0;
    curve.push_back({record.bins.LowerEdge(num_bins), 0, 0});
    for (int bin = num_bins - 1; bin >= 0; --bin) {
        hits += record.Hit(state, bin);
        others += record.All(state, bin) - record.Hit(state, bin);
        curve.push_back({record.bins.LowerEdge(bin), others / negatives, hits / positives});
    }
    return curve;
}

// By trapezoids, which counts a pair of cases in the same bin as half right.
double AreaUnder(std::span<const RocPoint> curve)
{
    if (curve.empty()) return UndefDbl();
    double area = 0;
    for (size_t i = 1; i < curve.size(); ++i)
        area += (curve[i].false_positive_rate - curve[i - 1].false_positive_rate) *
                (curve[i].true_positive_rate + curve[i - 1].true_positive_rate) / 2;
    return area;
}

bool DipsBelowDiagonal(std::span<const RocPoint> curve)
{
    return std::any_of(curve.begin(), curve.end(), [](const RocPoint& point) {
        return point.true_positive_rate < point.false_positive_rate - kRounding;
    });
}

// ---- Figures by name ----

namespace {

// What a measure is computed from.
struct StateFigures {
    Outcomes outcomes;
    std::vector<RocPoint> curve;
};

struct StateMeasure {
    std::string_view name;
    double (*value)(const StateFigures&);
};

constexpr double TruePositives(const StateFigures& f)
{
    return f.outcomes.true_positives;
}
constexpr double TrueNegatives(const StateFigures& f)
{
    return f.outcomes.true_negatives;
}
constexpr double FalsePositives(const StateFigures& f)
{
    return f.outcomes.false_positives;
}
constexpr double FalseNegatives(const StateFigures& f)
{
    return f.outcomes.false_negatives;
}
double Right(const StateFigures& f)
{
    return TruePositives(f) + TrueNegatives(f);
}
double Wrong(const StateFigures& f)
{
    return FalsePositives(f) + FalseNegatives(f);
}
double Sensitivity(const StateFigures& f)
{
    return Share(TruePositives(f), FalseNegatives(f));
}
double Specificity(const StateFigures& f)
{
    return Share(TrueNegatives(f), FalsePositives(f));
}
double PredictiveValue(const StateFigures& f)
{
    return Share(TruePositives(f), FalsePositives(f));
}
double NegativePredictiveValue(const StateFigures& f)
{
    return Share(TrueNegatives(f), FalseNegatives(f));
}
double MissRate(const StateFigures& f)
{
    return Share(FalseNegatives(f), TruePositives(f));
}
double FalseDiscoveryRate(const StateFigures& f)
{
    return Share(FalsePositives(f), TruePositives(f));
}
double FallOut(const StateFigures& f)
{
    return Share(FalsePositives(f), TrueNegatives(f));
}
double Accuracy(const StateFigures& f)
{
    return Share(Right(f), Wrong(f));
}
double ErrorRate(const StateFigures& f)
{
    return Share(Wrong(f), Right(f));
}
double Area(const StateFigures& f)
{
    return AreaUnder(f.curve);
}
double Gini(const StateFigures& f)
{
    return f.curve.empty() ? UndefDbl() : 2 * Area(f) - 1;
}
double Dips(const StateFigures& f)
{
    return f.curve.empty() ? UndefDbl() : DipsBelowDiagonal(f.curve);
}

constexpr StateMeasure kStateMeasures[] = {
    {"true_positives", TruePositives},
    {"true_negatives", TrueNegatives},
    {"false_positives", FalsePositives},
    {"false_negatives", FalseNegatives},
    {"sensitivity", Sensitivity},
    {"true_positive_rate", Sensitivity},
    {"hit_rate", Sensitivity},
    {"recall", Sensitivity},
    {"specificity", Specificity},
    {"true_negative_rate", Specificity},
    {"predictive_value", PredictiveValue},
    {"positive_predictive_value", PredictiveValue},
    {"precision", PredictiveValue},
    {"negative_predictive_value", NegativePredictiveValue},
    {"false_negative_rate", MissRate},
    {"miss_rate", MissRate},
    {"false_discovery_rate", FalseDiscoveryRate},
    {"fall_out", FallOut},
    {"accuracy", Accuracy},
    {"error_rate", ErrorRate},
    {"Gini_score", Gini},
    {"area_under_ROC", Area},
    {"AUROC", Area},
    {"ROC_curve_dips", Dips},
    {"hits", TruePositives},
    {"misses", FalseNegatives},
    {"false_alarms", FalsePositives},
    {"correct_rejections", TrueNegatives},
    {"type_I_errors", FalsePositives},
    {"type_II_errors", FalseNegatives},
};

struct RealMeasure {
    std::string_view name;
    double (*value)(const RealErrors&);
};

double Mean(double sum, const RealErrors& real)
{
    return real.cases > 0 ? sum / real.cases : UndefDbl();
}

double Largest(double value, const RealErrors& real)
{
    return real.cases > 0 ? value : UndefDbl();
}

constexpr RealMeasure kRealMeasures[] = {
    {"cases", [](const RealErrors& r) { return r.cases; }},
    {"mean_absolute_error", [](const RealErrors& r) { return Mean(r.sum_absolute, r); }},
    {"max_absolute_error", [](const RealErrors& r) { return Largest(r.max_absolute, r); }},
    {"rms_error",
     [](const RealErrors& r) { return r.cases > 0 ? std::sqrt(Mean(r.sum_squared, r)) : UndefDbl(); }},
    {"mean_relative_error", [](const RealErrors& r) { return Mean(r.sum_relative, r); }},
    {"max_relative_error", [](const RealErrors& r) { return Largest(r.max_relative, r); }},
    {"mean_deviations", [](const RealErrors& r) { return Mean(r.sum_deviations, r); }},
    {"max_deviations", [](const RealErrors& r) { return Largest(r.max_deviations, r); }},
    {"within_1_deviation",
     [](const RealErrors& r) { return r.cases - r.beyond[0] - r.beyond[1] - r.beyond[2]; }},
    {"from_1_to_2_deviations", [](const RealErrors& r) { return r.beyond[0]; }},
    {"from_2_to_3_deviations", [](const RealErrors& r) { return r.beyond[1]; }},
    {"above_3_deviations", [](const RealErrors& r) { return r.beyond[2]; }},
};

template <class Rows>
auto FindRow(const Rows& rows, std::string_view name)
{
    const auto found =
        std::find_if(std::begin(rows), std::end(rows), [&](const auto& row) { return row.name == name; });
    return found == std::end(rows) ? nullptr : &*found;
}

}  // namespace

bool FindStateMeasure(const TestRecord& record, int state, std::string_view name, double cutoff,
                      double* value)
{
    const StateMeasure* measure = FindRow(kStateMeasures, name);
    if (measure == nullptr) return false;
    const bool by_prediction = IsUndef(cutoff);
    // A cutoff of 0 calls every case positive, in the fine scheme too, where 0 has a bin of its own.
    const Outcomes outcomes = by_prediction ? OutcomesOfPrediction(record, state)
                                            : OutcomesFromBin(record, state, record.bins.BinOf(cutoff));
    *value = measure->value({outcomes, RocCurve(record, state)});
    return true;
}

bool FindRealMeasure(const RealErrors& real, std::string_view name, double* value)
{
    const RealMeasure* measure = FindRow(kRealMeasures, name);
    if (measure == nullptr) return false;
    *value = measure->value(real);
    return true;
}

}  // namespace talora
