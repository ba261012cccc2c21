// Reports of sensitivity: a pair of nodes, a table of all, and the table in HTML.
#include "BN/Sensitivity/SensitivityReport.h"

#include <algorithm>
#include <cmath>

#include "Basic/Environ.h"
#include "Basic/Error.h"
#include "Basic/Text.h"

namespace talora {

namespace {

constexpr char kRule[] = "-------------------------------------------------------------------------\n";

// ---- Figures as text ----

enum class Style { VALUE, PERCENT, BITS };

std::string Figure(double value, Style style)
{
    if (IsUndef(value)) return "undef";
    switch (style) {
        case Style::VALUE:
            return Format("%.4g", value);
        case Style::PERCENT:
            return Format("%.3g", value);
        case Style::BITS:
            break;
    }
    return Format("%.5f", value);
}

double PercentOf(double value, double whole)
{
    return IsUndef(value) || IsUndef(whole) || whole == 0 ? UndefDbl() : 100 * value / whole;
}

double Less(double whole, double part)
{
    return IsUndef(whole) || IsUndef(part) ? UndefDbl() : std::max(whole - part, 0.0);
}

// ---- Bounds in place of infinite ends ----

// Whether an interval of the node ends there, at plus or minus infinity.
bool HasEnd(const Node& node, double end)
{
    const std::vector<double>& levels = node.states.levels;
    return !IsDiscrete(node) && std::find(levels.begin(), levels.end(), end) != levels.end();
}

bool NeedsBound(const Sensv& sensv)
{
    return (IsUndef(sensv.lower_bound) && HasEnd(*sensv.query, -InfinityDbl())) ||
           (IsUndef(sensv.upper_bound) && HasEnd(*sensv.query, InfinityDbl()));
}

// Proposes to make the end interval as wide as the widest of the others.
double ProposedBound(const Node& node, bool upper)
{
    std::vector<double> ends;
    for (double level : node.states.levels)
        if (std::abs(level) < InfinityDbl()) ends.push_back(level);
    if (ends.empty()) return upper ? 1 : -1;
    std::sort(ends.begin(), ends.end());
    double widest = 0;
    for (size_t i = 1; i < ends.size(); ++i) widest = std::max(widest, ends[i] - ends[i - 1]);
    if (widest == 0) widest = std::max(1.0, std::abs(ends.front()));
    return upper ? ends.back() + widest : ends.front() - widest;
}

// The proposal is one of the answers; without it the figures of the real value are left out.
void AskBound(Sensv& sensv, bool upper)
{
    double& bound = upper ? sensv.upper_bound : sensv.lower_bound;
    if (!IsUndef(bound) || !HasEnd(*sensv.query, upper ? InfinityDbl() : -InfinityDbl())) return;
    const std::string question =
        Format("Enter a realistic %s bound on the real value of %s:", upper ? "upper" : "lower",
               sensv.query->name.c_str());
    const double proposed = ProposedBound(*sensv.query, upper);
    const std::string answers = FormatReal15(proposed) + ",Leave Out";
    if (AskQuestion(question.c_str(), answers.c_str(), "Leave Out") == 0) bound = proposed;
}

bool Asks(const Sensv& sensv, int flags)
{
    return (sensv.what_find & flags) == flags;
}

bool ShowsReal(const Sensv& sensv)
{
    return Asks(sensv, REAL_SENSV) && HasRealValues(*sensv.query);
}

// Settles what the question about bounds is asked for; also fails where there is nothing to report on.
void Prepare(Sensv& sensv)
{
    BringUpToDate(sensv);
    if (!ShowsReal(sensv)) return;
    AskBound(sensv, false);
    AskBound(sensv, true);
}

// ---- The three measures that every report has ----

// A share of the whole that rounding alone may give between nodes that are independent.
constexpr double kRounding = 1e-12;

struct Measured {
    double value, whole;  // whole: of the query node alone
    Measured(double v, double w) : value(!IsUndef(v) && v < kRounding * w ? 0 : v), whole(w) {}
    double Percent() const { return PercentOf(value, whole); }
};

const Measured kUnavailable = {UndefDbl(), UndefDbl()};

Measured RealVariance(Sensv& sensv, const Node& node)
{
    if (NeedsBound(sensv)) return kUnavailable;
    return {RealVarianceReduction(sensv, node), RealVarianceReduction(sensv, *sensv.query)};
}

Measured Information(Sensv& sensv, const Node& node)
{
    return {MutualInfo(sensv, node), QueryEntropy(sensv)};
}

Measured BeliefVariance(Sensv& sensv, const Node& node)
{
    return {BeliefVarianceReduction(sensv, node), QueryBeliefVariance(sensv)};
}

struct MeasureDef {
    int flags;
    Measured (*measure)(Sensv&, const Node&);
    const char* summary;  // of a pair
    Style style;          // of the value in tables
    const char *heading, *second_heading;
};
enum { REAL_ROW, INFO_ROW, BELIEF_ROW };
constexpr MeasureDef kMeasures[] = {
    {REAL_SENSV | VARIANCE_SENSV, RealVariance, "%sVariance reduction = %s  (%s %%)\n", Style::VALUE,
     "Variance    Percent", "Reduction"},
    {ENTROPY_SENSV, Information, "%sEntropy reduction  = %s  (%s %%)\n", Style::BITS, "Mutual      Percent",
     "Info"},
    {NODEVAR_SENSV, BeliefVariance, "%sBelief Variance    = %s  (%s %%)\n", Style::VALUE,
     "Variance of Percent", "Beliefs"},
};

bool Shows(const Sensv& sensv, const MeasureDef& measure)
{
    return Asks(sensv, measure.flags) && (!(measure.flags & REAL_SENSV) || ShowsReal(sensv));
}

// ---- A pair of nodes ----

struct Range {
    double least = UndefDbl(), now = UndefDbl(), greatest = UndefDbl(), rms = UndefDbl();
};

std::string RangeHeading(const char* what)
{
    return Format("%s%-20.20s  %-10s  %-10s  %-10s  |  %-10s\n", "\n  ", what, "Min", "Current", "Max",
                  "RMS Change");
}

std::string RangeLine(const std::string& label, const Range& range)
{
    return Format("  %-20.20s  %-10s  %-10s  %-10s  |  %-10s\n", label.c_str(),
                  Figure(range.least, Style::VALUE).c_str(), Figure(range.now, Style::VALUE).c_str(),
                  Figure(range.greatest, Style::VALUE).c_str(), Figure(range.rms, Style::VALUE).c_str());
}

unsigned PartsAsked(const Sensv& sensv)
{
    unsigned parts = AMOUNT_PART;
    if (Asks(sensv, VARIANCE_SENSV)) parts |= VARIANCE_PART;
    if (Asks(sensv, RANGE_SENSV)) parts |= RANGE_PART;
    return parts;
}

// Only the parts that were asked for are defined.
Range RangeOf(const FindingEffect& effect, double now, unsigned parts)
{
    Range range;
    range.now = now;
    if (IsUndef(effect.amount)) return range;
    if (parts & RANGE_PART) {
        range.least = now + effect.least;
        range.greatest = now + effect.greatest;
    }
    if (parts & VARIANCE_PART) range.rms = std::sqrt(effect.variance);
    return range;
}

std::string BeliefRanges(Sensv& sensv, const Node& varying)
{
    const unsigned parts = PartsAsked(sensv);
    std::string text = RangeHeading("Probability ranges:");
    for (int state = 0; state < int(sensv.beliefs.size()); ++state) {
        const FindingEffect effect = BeliefChange(sensv, varying, state, parts);
        text += RangeLine(StateWord(*sensv.query, state), RangeOf(effect, sensv.beliefs[state], parts));
    }
    return text;
}

std::string MeanRange(Sensv& sensv, const Node& varying)
{
    Range range;
    const unsigned parts = PartsAsked(sensv);
    if (!NeedsBound(sensv)) range = RangeOf(RealChange(sensv, varying, parts), QueryMean(sensv), parts);
    return RangeHeading("Mean of Real Value:") + RangeLine(sensv.query->name, range);
}

// ---- Tables ----

// The varying nodes that there still are, the most informative first.
std::vector<const Node*> NodesToShow(Sensv& sensv)
{
    const MeasureDef* by = nullptr;
    for (int row : {INFO_ROW, BELIEF_ROW, REAL_ROW})
        if (by == nullptr && Shows(sensv, kMeasures[row])) by = &kMeasures[row];
    std::vector<std::pair<double, const Node*>> rated;
    for (const Node* node : sensv.varying.nodes)
        if (node != nullptr && IsLive(node, NODE_TYPE))
            rated.emplace_back(by ? by->measure(sensv, *node).value : 0, node);
    std::stable_sort(rated.begin(), rated.end(), [](auto& a, auto& b) { return a.first > b.first; });
    std::vector<const Node*> nodes;
    for (const auto& [value, node] : rated) nodes.push_back(node);
    return nodes;
}

std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char c : text) switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    return escaped;
}

struct TextColumn {
    const char *key, *heading;
    std::string (*text)(const Node&);
};
constexpr TextColumn kTextColumns[] = {
    {"Node", "Node", [](const Node& node) { return node.name; }},
    {"NodeLabel", "Label",
     [](const Node& node) { return node.text.title.empty() ? node.name : node.text.title; }},
    {"Variable", "Variable",
     [](const Node& node) { return std::string(IsDiscrete(node) ? "discrete" : "continuous"); }},
};

struct FigureColumn {
    const char *key, *heading;
    int measure;  // row of kMeasures
    double (*figure)(const Measured&);
    Style style;
};
constexpr double (*kValue)(const Measured&) = [](const Measured& m) { return m.value; };
constexpr double (*kPercent)(const Measured&) = [](const Measured& m) { return m.Percent(); };
constexpr double (*kRest)(const Measured&) = [](const Measured& m) { return Less(m.whole, m.value); };
constexpr double (*kRestPercent)(const Measured&) = [](const Measured& m) {
    return PercentOf(Less(m.whole, m.value), m.whole);
};
// Each is shown if its measure was asked for; the rest is what a finding leaves of the whole.
constexpr FigureColumn kFigureColumns[] = {
    {"VarianceReduction", "Variance<br/> Reduction", REAL_ROW, kValue, Style::VALUE},
    {"VarianceReduction%", "% Variance<br/> Reduction", REAL_ROW, kPercent, Style::PERCENT},
    {"VarianceReal", "Variance<br/> Left", REAL_ROW, kRest, Style::VALUE},
    {"VarianceReal%", "% Variance<br/> Left", REAL_ROW, kRestPercent, Style::PERCENT},
    {"MutualInfo", "Mutual<br/> Information", INFO_ROW, kValue, Style::BITS},
    {"MutualInfo%", "% Entropy<br/> Reduction", INFO_ROW, kPercent, Style::PERCENT},
    {"BeliefVarianceReduction", "Variance of<br/> Beliefs", BELIEF_ROW, kValue, Style::VALUE},
    {"BeliefVarianceReduction%", "% Variance of<br/> Beliefs", BELIEF_ROW, kPercent, Style::PERCENT},
};

std::string HtmlCell(const char* tag, const char* style, const char* key, const std::string& text)
{
    return Format("<%s class=\"%s\" data-column=\"%s\">%s</%s>", tag, style, key, text.c_str(), tag);
}

std::string HtmlHeadings(const Sensv& sensv)
{
    std::string text = "<thead><tr>";
    for (const TextColumn& column : kTextColumns) text += HtmlCell("th", "text", column.key, column.heading);
    for (const FigureColumn& column : kFigureColumns)
        if (Shows(sensv, kMeasures[column.measure]))
            text += HtmlCell("th", "number", column.key, column.heading);
    return text + "</tr></thead>\n";
}

// The row of the query node itself is marked, as its figures are the wholes.
std::string HtmlRow(Sensv& sensv, const Node& node)
{
    std::string text = &node == sensv.query ? "<tr class=\"query\">" : "<tr>";
    for (const TextColumn& column : kTextColumns)
        text += HtmlCell("td", "text", column.key, Escaped(column.text(node)));
    std::vector<Measured> measured;
    for (const MeasureDef& measure : kMeasures)
        measured.push_back(Shows(sensv, measure) ? measure.measure(sensv, node) : kUnavailable);
    for (const FigureColumn& column : kFigureColumns)
        if (Shows(sensv, kMeasures[column.measure]))
            text += HtmlCell("td", "number", column.key,
                             Figure(column.figure(measured[column.measure]), column.style));
    return text + "</tr>\n";
}

}  // namespace

// Ranges of the beliefs, range of the mean, then the measures with a line each.
std::string PairReport(Sensv& sensv, const Node& varying)
{
    Prepare(sensv);
    std::string text = kRule;
    text += Format("\nSensitivity of '%s' to findings at '%s':\n", sensv.query->name.c_str(),
                   varying.name.c_str());
    if (Asks(sensv, BELIEF_SENSV)) text += BeliefRanges(sensv, varying);
    if (ShowsReal(sensv)) text += MeanRange(sensv, varying);
    text += "\n";
    for (const MeasureDef& measure : kMeasures) {
        if (!Shows(sensv, measure)) continue;
        const Measured measured = measure.measure(sensv, varying);
        text += Format(measure.summary, "  ", Figure(measured.value, Style::VALUE).c_str(),
                       Figure(measured.Percent(), Style::PERCENT).c_str());
    }
    return text + kRule;
}

// 1. Three lines of headings.
std::string AllNodesReport(Sensv& sensv)
{
    Prepare(sensv);
    std::string text = "Sensitivity of '" + sensv.query->name + "' to a finding at another node:\n\n";
    std::string headings[3];
    headings[0] = Format("%-24.24s", "Node");
    headings[1] = Format("%-24.24s", "");
    headings[2] = Format("%-24.24s", "----");
    for (const MeasureDef& measure : kMeasures) {
        if (!Shows(sensv, measure)) continue;
        headings[0] += Format(" %-21s", measure.heading);
        headings[1] += Format(" %-21s", measure.second_heading);
        headings[2] += Format(" %-11s %-9s", "----", "----");
    }
    // 2. A line for each node.
    for (const std::string& heading : headings) text += heading + "\n";
    for (const Node* node : NodesToShow(sensv)) {
        text += Format("%-24.24s", node->name.c_str());
        for (const MeasureDef& measure : kMeasures) {
            if (!Shows(sensv, measure)) continue;
            const Measured measured = measure.measure(sensv, *node);
            text += Format(" %-11s %-9s", Figure(measured.value, measure.style).c_str(),
                           Figure(measured.Percent(), Style::PERCENT).c_str());
        }
        text += "\n";
    }
    return text;
}

std::string HtmlTable(Sensv& sensv)
{
    Prepare(sensv);
    std::string text = "<table class=\"sensitivity\">\n<caption>Sensitivity of '" +
                       Escaped(sensv.query->name) + "' to a finding at another node</caption>\n";
    text += HtmlHeadings(sensv) + "<tbody>\n";
    for (const Node* node : NodesToShow(sensv)) text += HtmlRow(sensv, *node);
    return text + "</tbody>\n</table>\n";
}

}  // namespace talora
