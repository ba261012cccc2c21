// The page of talora sensitivity: bars of mutual information, a tornado for each state, a table.
#include <algorithm>
#include <cmath>

#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Svg.h"
#include "talora/Text.h"

namespace command {

namespace {

constexpr size_t kMostBars = 25;  // in a chart; the table has all
constexpr size_t kMostRanges = 15;
constexpr int kMostStates = 24;   // with a chart each
constexpr double kNoise = 1e-12;  // mutual information that is rounding
constexpr double kRounding = 1e-7;

bool Exists(double value)
{
    return std::isfinite(value) && value != GetUndefDbl_vx() && std::fabs(value) < GetInfinityDbl_vx();
}

std::string Percent(double share)
{
    return Digits(100 * share, 3) + " %";
}

std::string Omitted(size_t shown, size_t all)
{
    return shown < all ? "The " + std::to_string(shown) + " largest of " + std::to_string(all) + "." : "";
}

// The states of the query node, those with the highest beliefs if there are too many for charts.
std::vector<state_bn> StatesToShow(const node_bn* query, const prob_bn* beliefs)
{
    std::vector<state_bn> states;
    const int num_states = GetNodeNumberStates_bn(query);
    for (state_bn state = 0; state < num_states; ++state) states.push_back(state);
    if (num_states <= kMostStates) return states;
    std::stable_sort(states.begin(), states.end(),
                     [&](state_bn a, state_bn b) { return beliefs[a] > beliefs[b]; });
    states.resize(kMostStates);
    std::sort(states.begin(), states.end());
    return states;
}

std::string BeliefBars(const node_bn* query, const prob_bn* beliefs, const std::vector<state_bn>& states)
{
    std::vector<BarRow> rows;
    for (const state_bn state : states)
        rows.push_back({StateName(query, state), beliefs[state], Percent(beliefs[state])});
    return FigureMarkup(BarChart("Present beliefs", "A bar for the probability of each state", rows, 1),
                        "Present beliefs", Omitted(states.size(), size_t(GetNodeNumberStates_bn(query))));
}

std::string InformationBars(sensv_bn* sensv, const std::vector<node_bn*>& varying)
{
    const double entropy = GetMutualInfo_bn(sensv, GetSensvQueryNode_bn(sensv));
    std::vector<BarRow> rows;
    for (const node_bn* node : varying) {
        double info = GetMutualInfo_bn(sensv, node);
        if (!Exists(info)) continue;
        if (info < kNoise) info = 0;
        rows.push_back({GetNodeName_bn(node), info,
                        Digits(info) + (entropy > 0 ? " bit, " + Percent(info / entropy) : " bit")});
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const BarRow& a, const BarRow& b) { return a.value > b.value; });
    const size_t all = rows.size();
    rows.resize(std::min(all, kMostBars));
    return FigureMarkup(
        BarChart("Mutual information", "A bar for each varying node, the most informative first", rows),
        "Mutual information",
        Omitted(rows.size(), all) + "How much of the entropy, " + Digits(entropy) +
            " bit, a finding at the node is expected to take away.");
}

// change gets, for a varying node, the least and the greatest change of the present value.
template <class Change>
std::string Tornado(const std::string& title, double present, const std::vector<node_bn*>& varying,
                    Change change)
{
    std::vector<RangeRow> rows;
    for (const node_bn* node : varying) {
        double least = 0, greatest = 0;
        change(node, least, greatest);
        if (Exists(least) && Exists(greatest))
            rows.push_back(
                {GetNodeName_bn(node), present + std::min(least, 0.0), present + std::max(greatest, 0.0)});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const RangeRow& a, const RangeRow& b) {
        return a.high / 2 - a.low / 2 > b.high / 2 - b.low / 2;
    });
    const size_t all = rows.size();
    rows.resize(std::min(all, kMostRanges));
    return FigureMarkup(
        RangeChart(title, "For each varying node the range that findings there can lead to", present, rows),
        title, Omitted(rows.size(), all));
}

}  // namespace

Page SensitivityPage(sensv_bn* sensv, const net_bn* net, const std::vector<node_bn*>& varying, bool has_real)
{
    node_bn* query = GetSensvQueryNode_bn(sensv);
    const std::string findings = DescribeFindings(net);
    Page page(NameAndTitle(GetNodeName_bn(query), GetNodeTitle_bn(query)), "Sensitivity to findings");
    page.Paragraph("Net " + NameAndTitle(GetNetName_bn(net), GetNetTitle_bn(net)));
    page.Paragraph(findings.empty() ? "No findings." : "Findings: " + findings + ".");
    std::vector<node_bn*> others = varying;
    std::erase(others, query);
    const prob_bn* beliefs = GetNodeBeliefs_bn(query);
    if (beliefs == nullptr) return page;
    const std::vector<state_bn> states = StatesToShow(query, beliefs);

    page.Section("Where a further finding would be most informative");
    page.Figures({BeliefBars(query, beliefs, states), InformationBars(sensv, others)});
    page.Section("How far a further finding can move each belief");
    page.Paragraph(
        "Each bar reaches from the lowest to the highest probability that a finding at the node can "
        "lead to; the line is the present one.");
    std::vector<std::string> figures;
    for (const state_bn state : states)
        figures.push_back(Tornado("Probability of " + StateName(query, state), beliefs[state], others,
                                  [&](const node_bn* node, double& least, double& greatest) {
                                      GetBeliefChange_bn(sensv, node, state, nullptr, &least, &greatest);
                                      // The present belief is single precision, the changes are not.
                                      if (beliefs[state] + least < kRounding) least = -beliefs[state];
                                      if (beliefs[state] + greatest > 1 - kRounding)
                                          greatest = 1 - double(beliefs[state]);
                                  }));
    const double mean = has_real ? GetNodeExpectedValue_bn(query, nullptr) : GetUndefDbl_vx();
    if (Exists(mean))
        figures.push_back(Tornado("Mean of the value", mean, others,
                                  [&](const node_bn* node, double& least, double& greatest) {
                                      GetMeanChange_bn(sensv, node, nullptr, &least, &greatest);
                                  }));
    page.Figures(figures);
    page.Section("All measures");
    const char* table = ReportSensvHtml_bn(sensv);
    page.Add("<div class=\"scroll\" role=\"region\" tabindex=\"0\" aria-label=\"All measures\">\n" +
             PrintableLines(table ? table : "") + "</div>\n");
    return page;
}

}  // namespace command
