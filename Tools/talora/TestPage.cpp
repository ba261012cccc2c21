// The page of talora test: scores of all nodes; for each node confusion, ROC and calibration curves,
// surprises.
#include <algorithm>
#include <cmath>

#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Svg.h"

namespace command {

namespace {

using Rows = std::vector<std::vector<Cell>>;

constexpr int kMostInMatrix = 40;   // states
constexpr int kMostInTable = 1000;  // likewise
constexpr int kCalibrationGroups = 10;
constexpr double kLimits[] = {0.01, 0.1, 0.9, 0.99};

struct MeasureDef {
    const char *name, *heading;
};
constexpr MeasureDef kStateFigures[] = {{"sensitivity", "Sensitivity"},
                                        {"specificity", "Specificity"},
                                        {"predictive_value", "Predictive value"},
                                        {"negative_predictive_value", "Negative predictive value"},
                                        {"AUROC", "Area under ROC"},
                                        {"Gini_score", "Gini score"}};
constexpr MeasureDef kRealFigures[] = {{"cases", "Cases with a value"},
                                       {"mean_absolute_error", "Mean absolute error"},
                                       {"max_absolute_error", "Largest absolute error"},
                                       {"rms_error", "Root mean square error"},
                                       {"mean_relative_error", "Mean relative error"},
                                       {"max_relative_error", "Largest relative error"},
                                       {"mean_deviations", "Mean error in standard deviations"},
                                       {"max_deviations", "Largest error in standard deviations"},
                                       {"within_1_deviation", "Cases within 1 deviation"},
                                       {"from_1_to_2_deviations", "Cases from 1 to 2 deviations"},
                                       {"from_2_to_3_deviations", "Cases from 2 to 3 deviations"},
                                       {"above_3_deviations", "Cases above 3 deviations"}};

// A number for a table; a dash where there is none.
std::string Shown(double value)
{
    return value == GetUndefDbl_vx() ? "–" : Digits(value);
}

std::string Weight(double value)
{
    return Digits(value, 9);
}

std::string Percent(double share)
{
    return Digits(100 * share, 3) + " %";
}

double StateMeasure(const tester_bn* tester, const node_bn* node, state_bn state, const char* name)
{
    return GetTestStateMeasure_bn(tester, node, state, name, GetUndefDbl_vx());
}

// The states that get curves: all, or those that most cases were in.
std::vector<state_bn> StatesWithCurves(const tester_bn* tester, const node_bn* node)
{
    std::vector<state_bn> states;
    const int num_states = GetNodeNumberStates_bn(node);
    for (state_bn state = 0; state < num_states; ++state) states.push_back(state);
    if (states.size() <= kCurveStyles) return states;
    std::vector<double> weights;
    for (const state_bn state : states)
        weights.push_back(StateMeasure(tester, node, state, "true_positives") +
                          StateMeasure(tester, node, state, "false_negatives"));
    std::stable_sort(states.begin(), states.end(),
                     [&](state_bn a, state_bn b) { return weights[size_t(a)] > weights[size_t(b)]; });
    states.resize(kCurveStyles);
    std::sort(states.begin(), states.end());
    return states;
}

std::string Omitted(const node_bn* node, const std::vector<state_bn>& states)
{
    const auto all = static_cast<size_t>(GetNodeNumberStates_bn(node));
    if (states.size() == all) return "";
    return "The " + std::to_string(states.size()) + " of " + std::to_string(all) +
           " states that most cases were in. ";
}

bool IsBetween(const Point& a, const Point& b, const Point& c)
{
    return std::fabs((b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x)) < 1e-12;
}

// Corners only: with a thousand cutoffs most points lie on straight lines.
Curve RocCurve(const tester_bn* tester, const node_bn* node, state_bn state)
{
    Curve curve;
    std::vector<Point>& points = curve.points;
    Point point;
    for (int i = 0; GetTestRocPoint_bn(tester, node, state, i, nullptr, &point.x, &point.y); ++i) {
        while (points.size() >= 2 && IsBetween(points[points.size() - 2], points.back(), point))
            points.pop_back();
        points.push_back(point);
    }
    return curve;
}

std::string RocFigure(const tester_bn* tester, const node_bn* node, const std::vector<state_bn>& states)
{
    std::vector<Curve> curves;
    std::vector<std::string> legend;
    for (const state_bn state : states) {
        curves.push_back(RocCurve(tester, node, state));
        legend.push_back(StateName(node, state) +
                         (curves.back().points.empty()
                              ? ": not in both kinds of cases"
                              : ", area " + Shown(StateMeasure(tester, node, state, "AUROC"))));
    }
    const std::string drawing = CurveChart(
        "ROC curves", "A curve for each state: true positives against false positives, for all cutoffs",
        "false positive rate", "true positive rate", curves);
    return FigureMarkup(drawing, "ROC curves", Omitted(node, states) + "The diagonal is guessing.", legend);
}

// 1. Bins put together to tenths of belief.
Curve CalibrationCurve(const tester_bn* tester, const node_bn* node, state_bn state)
{
    double weights[kCalibrationGroups] = {}, hits[kCalibrationGroups] = {}, beliefs[kCalibrationGroups] = {};
    const int num_bins = GetTestNumBins_bn(tester, node);
    for (int bin = 0; bin < num_bins; ++bin) {
        double upper = 0, actual = 0;
        const double lower = GetTestBinEdges_bn(tester, node, bin, &upper), middle = (lower + upper) / 2;
        const double weight = GetTestCalibration_bn(tester, node, state, bin, &actual);
        const int group = std::clamp(int(middle * kCalibrationGroups), 0, kCalibrationGroups - 1);
        weights[group] += weight;
        hits[group] += actual;
        beliefs[group] += weight * middle;
    }
    Curve curve;
    for (int group = 0; group < kCalibrationGroups; ++group) {
        if (!(weights[group] > 0)) continue;
        const Point point = {beliefs[group] / weights[group], hits[group] / weights[group]};
        curve.points.push_back(point);
        curve.hints.push_back(StateName(node, state) + ": average belief " + Digits(point.x) +
                              ", actual in a share of " + Digits(point.y) + " (" + Weight(weights[group]) +
                              " cases)");
    }
    return curve;
}

std::string CalibrationFigure(const tester_bn* tester, const node_bn* node,
                              const std::vector<state_bn>& states)
{
    std::vector<Curve> curves;
    std::vector<std::string> legend;
    for (const state_bn state : states) {
        curves.push_back(CalibrationCurve(tester, node, state));
        legend.push_back(StateName(node, state));
    }
    const std::string drawing = CurveChart(
        "Calibration", "A curve for each state: how often it was the actual one against the belief in it",
        "belief", "share of cases in the state", curves);
    return FigureMarkup(
        drawing, "Calibration",
        Omitted(node, states) + "A dot for each tenth of belief; on the diagonal beliefs are right.", legend);
}

// Shaded by the share of the cases of a row.
std::string ConfusionTable(const tester_bn* tester, const node_bn* node)
{
    const int num_states = GetNodeNumberStates_bn(node);
    Rows rows = {{{"Actual"}}};
    for (state_bn state = 0; state < num_states; ++state) rows[0].push_back({StateName(node, state)});
    rows[0].push_back({"all"});
    for (state_bn actual = 0; actual < num_states; ++actual) {
        std::vector<double> weights;
        double all = 0;
        for (state_bn predicted = 0; predicted < num_states; ++predicted) {
            weights.push_back(GetTestConfusion_bn(tester, node, predicted, actual));
            all += weights.back();
        }
        rows.push_back({{StateName(node, actual)}});
        for (state_bn predicted = 0; predicted < num_states; ++predicted) {
            const double weight = weights[size_t(predicted)];
            rows.back().push_back(
                {Weight(weight), predicted == actual ? "right" : "wrong", all > 0 ? weight / all : 0});
        }
        rows.back().push_back({Weight(all)});
    }
    return TableMarkup("Confusion matrix: cases by actual state (rows) and predicted state (columns)", rows);
}

std::string SurpriseTable(const tester_bn* tester, const node_bn* node)
{
    Rows rows = {{{"State"}, {"Belief at most 1 %"}, {"at most 10 %"}, {"at least 90 %"}, {"at least 99 %"}}};
    const int num_states = std::min(GetNodeNumberStates_bn(node), kMostInTable);
    for (state_bn state = 0; state < num_states; ++state) {
        rows.push_back({{StateName(node, state)}});
        for (const double limit : kLimits) {
            double surprised = 0;
            const double weight = GetTestSurprise_bn(tester, node, state, limit, &surprised);
            rows.back().push_back({weight > 0 ? Weight(surprised) + " of " + Weight(weight) + " (" +
                                                    Percent(surprised / weight) + ")"
                                              : "–"});
        }
    }
    return TableMarkup("Surprises: cases whose belief in a state was extreme, and misled", rows);
}

std::string StateTable(const tester_bn* tester, const node_bn* node)
{
    Rows rows = {{{"State"}}};
    for (const MeasureDef& measure : kStateFigures) rows[0].push_back({measure.heading});
    const int num_states = std::min(GetNodeNumberStates_bn(node), kMostInTable);
    for (state_bn state = 0; state < num_states; ++state) {
        rows.push_back({{StateName(node, state)}});
        for (const MeasureDef& measure : kStateFigures)
            rows.back().push_back({Shown(StateMeasure(tester, node, state, measure.name))});
    }
    return TableMarkup("Each state against all others", rows);
}

std::string RealTable(const tester_bn* tester, const node_bn* node)
{
    Rows rows = {{{"Measure"}, {"Value"}}};
    for (const MeasureDef& measure : kRealFigures)
        rows.push_back({{measure.heading}, {Shown(GetTestRealMeasure_bn(tester, node, measure.name))}});
    return TableMarkup("Expected against actual value", rows);
}

std::string ScoreTable(const tester_bn* tester, const std::vector<node_bn*>& nodes)
{
    Rows rows = {{{"Node"},
                  {"Cases"},
                  {"Error rate"},
                  {"Logarithmic loss"},
                  {"Quadratic loss"},
                  {"Spherical payoff"}}};
    for (const node_bn* node : nodes)
        rows.push_back({{GetNodeName_bn(node)},
                        {Weight(GetTestNumCases_bn(tester, node, nullptr, nullptr))},
                        {Shown(GetTestErrorRate_bn(tester, node))},
                        {Shown(GetTestLogLoss_bn(tester, node))},
                        {Shown(GetTestQuadraticLoss_bn(tester, node))},
                        {Shown(GetTestSphericalPayoff_bn(tester, node))}});
    return TableMarkup("Scores", rows);
}

// Curves, then tables; what is too large for a page is left out and the page says so.
void AddNode(Page& page, const tester_bn* tester, const node_bn* node)
{
    const int num_states = GetNodeNumberStates_bn(node);
    page.Section(NameAndTitle(GetNodeName_bn(node), GetNodeTitle_bn(node)));
    if (!(GetTestNumCases_bn(tester, node, nullptr, nullptr) > 0)) {
        page.Paragraph("No case has a state for this node.");
        return;
    }
    const std::vector<state_bn> states = StatesWithCurves(tester, node);
    page.Figures({RocFigure(tester, node, states), CalibrationFigure(tester, node, states)});
    if (num_states <= kMostInMatrix)
        page.Add(ConfusionTable(tester, node));
    else
        page.Paragraph("The confusion matrix has " + std::to_string(num_states) +
                       " states, too many to show here; --json has it.");
    page.Add(SurpriseTable(tester, node));
    page.Add(StateTable(tester, node));
    if (num_states > kMostInTable)
        page.Paragraph("The tables have the first " + std::to_string(kMostInTable) + " of " +
                       std::to_string(num_states) + " states.");
    if (GetTestRealMeasure_bn(tester, node, "cases") > 0) page.Add(RealTable(tester, node));
}

}  // namespace

Page TestPage(const tester_bn* tester, const net_bn* net, const std::vector<node_bn*>& nodes)
{
    Page page(NameAndTitle(GetNetName_bn(net), GetNetTitle_bn(net)), "Test with cases");
    if (!nodes.empty()) {
        double all = 0, impossible = 0;
        GetTestNumCases_bn(tester, nodes.front(), &all, &impossible);
        page.Paragraph(Weight(all) + " cases were read" +
                       (impossible > 0 ? "; " + Weight(impossible) + " were impossible and left out." : "."));
    }
    page.Section("Scores");
    page.Add(ScoreTable(tester, nodes));
    for (const node_bn* node : nodes) AddNode(page, tester, node);
    return page;
}

}  // namespace command
