// The report of a net test, part by part.
#include "BN/Testing/TestReport.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "Basic/Text.h"

namespace talora {

namespace {

constexpr int kLargeMatrix = 30;  // states; beyond that the user is asked
constexpr size_t kRuleLength = 79;
constexpr size_t kTitleLength = 30;
constexpr size_t kSurpriseWidth = 18;  // of a column under "Times Surprised"
constexpr const char* kTargetField = "target_state";

// Cutoffs of the quality of a test for the fine bins, in thousandths.
constexpr int kFineCutoffs[] = {0,   1,   2,   5,   10,  20,  50,  100, 200, 300, 400, 500,
                                600, 700, 800, 900, 950, 980, 990, 995, 998, 999, 1000};

// ---- Pieces of text ----

std::string Real(double value, std::chars_format form, int digits)
{
    char buffer[400];
    return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value, form, digits).ptr};
}

// As "%.4g" would print it, or with other digits.
std::string General(double value, int digits = 4)
{
    if (IsUndef(value)) return "undefined";
    if (std::fabs(value) >= InfinityDbl()) return value > 0 ? "infinite" : "-infinite";
    return Real(value, std::chars_format::general, digits);
}

std::string Fixed(double value, int digits)
{
    return Real(value, std::chars_format::fixed, digits);
}

std::string Left(std::string text, size_t width)
{
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

std::string Right(std::string text, size_t width)
{
    if (text.size() < width) text.insert(0, width - text.size(), ' ');
    return text;
}

// A weight as a whole number of cases.
long long Whole(double weight)
{
    return std::fabs(weight) < 9e18 ? std::llround(weight) : 0;
}

std::string RowName(const NodeTest& test, int state)
{
    return "  " + Left(StateWord(*test.node, state).substr(0, 10), 10);
}

double Percent(double part, double whole)
{
    return whole != 0 ? 100 * part / whole : 0;
}

// ---- The parts of the report, in their order ----

// Name and title, without what could disturb the terminal.
std::string Heading(const NodeTest& test)
{
    const std::string& name = test.node->name;
    std::string text = "\nFor " + name + ":";
    std::string title = test.node->text.title.substr(0, CutLength(test.node->text.title, kTitleLength));
    for (char& c : title)
        if (c == '_' || static_cast<unsigned char>(c) < ' ' || c == 127) c = ' ';
    text += title.empty() ? "\n" : "       " + title + "\n";
    return text + std::string(4 + name.size(), '-') + "\n";
}

// Rows: actual states; columns: predicted ones; whole numbers of cases.
std::string ConfusionMatrix(const NodeTest& test)
{
    const int n = test.record.num_states;
    if (n > kLargeMatrix) {
        const std::string question =
            Format("Print large %d x %d confusion matrix for '%s'?", n, n, test.node->name.c_str());
        if (AskQuestion(question.c_str(), "Yes,No", "Yes") == 1) return "";
    }
    const std::string word = "Predicted";
    const size_t width = size_t(n) * 8 - 2;
    const size_t dots = width > word.size() ? width - word.size() : 0;
    std::string text =
        "\nConfusion:\n  " + std::string(dots / 2, '.') + word + std::string(dots - dots / 2, '.') + "\n";
    for (int state = 0; state < n; ++state) text += Format("  %6.6s", StateWord(*test.node, state).c_str());
    text += "    Actual\n";
    for (int state = 0; state < n; ++state) text += "  ------";
    text += "    ------\n";
    for (int actual = 0; actual < n; ++actual) {
        for (int predicted = 0; predicted < n; ++predicted)
            text += Format("  %6lld", Whole(test.record.Confusion(actual, predicted)));
        text += "    " + StateWord(*test.node, actual) + "\n";
    }
    return text;
}

// Errors of the expected value; only for nodes whose cases gave numbers.
std::string RealValues(const TestRecord& record)
{
    const RealErrors& real = record.real;
    const auto figure = [&](const char* name) {
        double value = UndefDbl();
        FindRealMeasure(real, name, &value);
        return value;
    };
    const auto percent = [&](const char* name) {
        const double value = figure(name);
        return General(value >= InfinityDbl() ? value : 100 * value) + " %";
    };
    const char* indent = "  ";
    std::string text = "\nTesting Real Value";
    if (real.cases != record.cases) text += "  (" + General(real.cases) + " cases)";
    text += ":\n";
    text += indent + std::string("Absolute error:") + " mean = " + General(figure("mean_absolute_error")) +
            " max = " + General(figure("max_absolute_error")) + " rms = " + General(figure("rms_error")) +
            "\n";
    text += indent + std::string("Relative error:") + " mean = " + percent("mean_relative_error") +
            " max = " + percent("max_relative_error") + "\n";
    text += indent + std::string("Error / std dev:") + " mean = " + General(figure("mean_deviations")) +
            " max = " + General(figure("max_deviations")) + "\n";
    text += "Distribution within:  0-1 std dev 1-2 std dev 2-3 std dev >3 std dev\n";
    std::string shares = std::string(22, ' ');
    for (const char* name :
         {"within_1_deviation", "from_1_to_2_deviations", "from_2_to_3_deviations", "above_3_deviations"})
        shares += Left((shares.size() > 22 ? " " : "") + General(Percent(figure(name), real.cases), 3) + " %",
                       shares.size() > 22 ? 12 : 11);
    shares.erase(shares.find_last_not_of(' ') + 1);
    return text + shares + "\n";
}

std::string ScoringRules(const TestRecord& record)
{
    std::string text = "\nError rate = " + General(Percent(record.errors, record.cases)) + "%\n";
    text += "\nScoring Rule Results:\n";
    text += "  Logarithmic loss = " +
            (std::isinf(record.log_loss) ? "INFINITY" : General(record.log_loss / record.cases)) + "\n";
    text += "  Quadratic loss   = " + General(record.quadratic_loss / record.cases) + "\n";
    return text + "  Spherical payoff = " + General(record.spherical_payoff / record.cases) + "\n";
}

// The bins of a record put together to those shown: a fine record is shown in the bins that are narrow
// towards 0 and 1.  Bin k of the record goes to bin result[k].
std::vector<int> ShownBins(const CalibrationBins& bins, CalibrationBins* shown)
{
    *shown = bins.scheme == FINE_BINS ? FixedBins(TAILS_BINS) : bins;
    std::vector<int> target(static_cast<size_t>(bins.Count()));
    for (int bin = 0; bin < bins.Count(); ++bin)
        target[size_t(bin)] = bins.scheme == FINE_BINS ? shown->BinOf(bins.LowerEdge(bin)) : bin;
    return target;
}

std::string CalibrationRow(const std::string& name, const CalibrationBins& bins,
                           const std::vector<double>& all, const std::vector<double>& hit)
{
    std::string text = name;
    for (int bin = 0; bin < bins.Count(); ++bin) {
        if (all[size_t(bin)] == 0) continue;
        // Edges in percent, rounded so that 0.07 is 7 and not 7.000000000000001.
        text += "  " + General(100 * bins.LowerEdge(bin), 6) + "-" + General(100 * bins.UpperEdge(bin), 6) +
                ": " + General(Percent(hit[size_t(bin)], all[size_t(bin)]), 3);
    }
    return text + "\n";
}

// Of the cases in each bin of belief, the percentage in which the state was the actual one, by state and in
// total.
std::string Calibration(const NodeTest& test)
{
    const TestRecord& record = test.record;
    CalibrationBins shown;
    const std::vector<int> target = ShownBins(record.bins, &shown);
    const std::vector<double> none(static_cast<size_t>(shown.Count()));
    std::vector<double> total_all = none, total_hit = none;
    std::string text = "\nCalibration:\n";
    for (int state = 0; state < record.num_states; ++state) {
        std::vector<double> all = none, hit = none;
        for (int bin = 0; bin < record.bins.Count(); ++bin) {
            const auto at = size_t(target[size_t(bin)]);
            all[at] += record.All(state, bin);
            hit[at] += record.Hit(state, bin);
        }
        for (size_t at = 0; at < none.size(); ++at) total_all[at] += all[at], total_hit[at] += hit[at];
        text += CalibrationRow(RowName(test, state), shown, all, hit);
    }
    return text + CalibrationRow("  " + Left("Total", 10), shown, total_all, total_hit);
}

using LimitSums = std::array<double, kSurpriseLimits.size()>;

std::string SurpriseRow(const std::string& name, const LimitSums& limited, const LimitSums& surprised)
{
    std::string text = name;
    for (size_t limit = 0; limit < limited.size(); ++limit) {
        const std::string cell = " " + Right(Fixed(Percent(surprised[limit], limited[limit]), 2), 6) +
                                 Format(" (%lld/%lld)", Whole(surprised[limit]), Whole(limited[limit]));
        text += limit + 1 < limited.size() ? Left(cell, kSurpriseWidth) : cell;
    }
    return text + "\n";
}

// Strong beliefs that were wrong, by state and in total.
std::string Surprises(const NodeTest& test)
{
    std::string text =
        "\nTimes Surprised (percentage):\n"
        "               .................Predicted Probability....................\n"
        "  State        < 1%             < 10%             > 90%             > 99%\n";
    text += "  " + std::string(71, '-') + "\n";
    LimitSums total_limited = {}, total_surprised = {};
    for (int state = 0; state < test.record.num_states; ++state) {
        LimitSums limited, surprised;
        for (int limit = 0; limit < int(limited.size()); ++limit) {
            total_limited[size_t(limit)] += limited[size_t(limit)] = test.record.Limited(state, limit);
            total_surprised[size_t(limit)] += surprised[size_t(limit)] = test.record.Surprised(state, limit);
        }
        text += SurpriseRow(RowName(test, state), limited, surprised);
    }
    return text + SurpriseRow("  " + Left("Total", 10), total_limited, total_surprised);
}

// Rows: actual states; columns: of the cases with that state, the percentage with each prediction.
std::string SensitivityOfTest(const NodeTest& test)
{
    const TestRecord& record = test.record;
    std::string text = "\nSensitivity of Test:\n\n  " + std::string(10, ' ');
    for (int state = 0; state < record.num_states; ++state) text += RowName(test, state);
    for (int actual = 0; actual < record.num_states; ++actual) {
        text.erase(text.find_last_not_of(' ') + 1);
        text += "\n  " + Right(StateWord(*test.node, actual), 10);
        double cases = 0;
        for (int predicted = 0; predicted < record.num_states; ++predicted)
            cases += record.Confusion(actual, predicted);
        for (int predicted = 0; predicted < record.num_states; ++predicted)
            text +=
                "  " +
                Left(cases == 0 ? "-" : General(Percent(record.Confusion(actual, predicted), cases), 3), 10);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
}

// ---- Quality of the test for one state ----

// The state that the quality of the test is reported for: the one that the node's user field names, else the
// first of two; -1 for none.
int TargetState(const NodeTest& test)
{
    const Node& node = *test.node;
    const int usual = test.record.num_states == 2 ? 0 : -1;
    const auto& fields = node.text.user_fields;
    const auto field =
        std::find_if(fields.begin(), fields.end(), [](const UserField& f) { return f.name == kTargetField; });
    if (field == fields.end()) return usual;
    const int state = FindState(node, field->value);
    if (state >= 0) return state;
    Warn<6749>(node.name.c_str(), kTargetField, field->value.c_str());
    return usual;
}

// Sensitivity, specificity, predictive values and error rate at one cutoff, in percent.
std::string QualityRow(const TestRecord& record, int state, int first_bin, double cutoff)
{
    const Outcomes o = OutcomesFromBin(record, state, first_bin);
    const double right = o.true_positives + o.true_negatives, wrong = o.false_positives + o.false_negatives;
    const double shares[] = {Share(o.true_positives, o.false_negatives),
                             Share(o.true_negatives, o.false_positives),
                             Share(o.true_positives, o.false_positives),
                             Share(o.true_negatives, o.false_negatives), Share(wrong, right)};
    const bool is_fine = record.bins.scheme == FINE_BINS;
    std::string text = Right(Fixed(100 * cutoff, 1), 8);
    for (double share : shares) {
        const std::string cell = IsUndef(share) ? "-"
                                 : is_fine      ? General(100 * share, 7)
                                                : Fixed(100 * share, 2);
        text += " " + Right(cell, 13);
    }
    return text + "\n";
}

// A line for each cutoff, then Gini coefficient and area under the ROC curve.
std::string QualityOfTest(const NodeTest& test)
{
    const int state = TargetState(test);
    if (state < 0) return "";
    const TestRecord& record = test.record;
    const bool is_fine = record.bins.scheme == FINE_BINS;
    std::string text = "\nQuality of Test for state '" + StateWord(*test.node, state) + "'" +
                       (is_fine ? " (higher resolution)" : "") + ":\n";
    text += "  Cutoff   Sensitivity   Specificity    Predictive   Predict-Neg    Error-Rate\n";
    if (is_fine)
        for (int cutoff : kFineCutoffs)
            text += QualityRow(record, state, cutoff == 0 ? 0 : cutoff + 1, cutoff / 1000.0);
    else
        for (int bin = 0; bin <= record.bins.Count(); ++bin)
            text += QualityRow(record, state, bin, std::min(1.0, record.bins.LowerEdge(bin)));
    const std::vector<RocPoint> curve = RocCurve(record, state);
    const double area = AreaUnder(curve);
    text += "  Gini coeff = " + General(IsUndef(area) ? area : 2 * area - 1) + "\n";
    text += "  Area under ROC = " + General(area) + "    " +
            (DipsBelowDiagonal(curve) ? "(ROC curve dips below main diagonal)" : "") + "\n";
    return text;
}

}  // namespace

// Parts without cases behind them are left out.
std::string TestReport(const NodeTest& test)
{
    const TestRecord& record = test.record;
    std::string text = Heading(test);
    if (record.cases <= 0 && record.real.cases <= 0) return text + "\nNo applicable cases\n";
    if (record.cases > 0) text += ConfusionMatrix(test);
    if (record.real.cases > 0) text += RealValues(record);
    if (record.cases > 0) {
        text += ScoringRules(record) + Calibration(test) + Surprises(test);
        if (record.num_states > 2) text += SensitivityOfTest(test);
        text += QualityOfTest(test);
    }
    return text + "\n" + std::string(kRuleLength, '-') + "\n";
}

std::string TestReport(Tester& tester)
{
    std::string text;
    for (const NodeTest& test : tester.tests) text += TestReport(TestOf(tester, *test.node));
    return text;
}

}  // namespace talora
