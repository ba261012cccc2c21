// The page of talora mpe: how probable the best configurations are, where they differ, and the one asked for.
#include <cmath>

#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Svg.h"

namespace command {

namespace {

constexpr size_t kMostDifferences = 12;

std::string Title(const Configuration& configuration)
{
    return configuration.nth == 0 ? "0, the most probable" : std::to_string(configuration.nth);
}

std::string Bars(const std::vector<Configuration>& configurations)
{
    const double best = configurations.front().log_probability;
    std::vector<BarRow> rows;
    for (const Configuration& c : configurations)
        rows.push_back({Title(c), std::exp(c.log_probability - best), Digits(std::exp(c.log_probability))});
    return FigureMarkup(BarChart("Probabilities of configurations",
                                 "A bar for each configuration, the most probable first", rows),
                        "Probability, together with the findings", "");
}

std::string Differences(const std::vector<node_bn*>& nodes, const Configuration& best,
                        const Configuration& other)
{
    std::string text;
    size_t count = 0;
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (other.setting[i] == best.setting[i] || other.setting[i] < 0) continue;
        if (++count <= kMostDifferences)
            text += (text.empty() ? "" : ", ") + std::string(GetNodeName_bn(nodes[i])) + " = " +
                    StateName(nodes[i], other.setting[i]);
    }
    if (count > kMostDifferences) text += " and " + std::to_string(count - kMostDifferences) + " more";
    return text;
}

std::string Ranking(const std::vector<node_bn*>& nodes, const std::vector<Configuration>& configurations)
{
    const Configuration& best = configurations.front();
    std::vector<std::vector<Cell>> rows = {{{"Configuration"},
                                            {"Differs from the most probable in"},
                                            {"Probability"},
                                            {"Logarithm"},
                                            {"Share of the best"}}};
    for (const Configuration& c : configurations)
        rows.push_back({{Title(c)},
                        {&c == &best ? "" : Differences(nodes, best, c)},
                        {Digits(std::exp(c.log_probability))},
                        {Digits(c.log_probability, 6)},
                        {Digits(std::exp(c.log_probability - best.log_probability))}});
    return TableMarkup("The best configurations", rows, 2);
}

std::string Setting(const std::vector<node_bn*>& nodes, const Configuration& best, const Configuration& asked)
{
    std::vector<std::vector<Cell>> rows = {{{"Node"}, {"State"}, {"Label"}, {""}}};
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (asked.setting[i] < 0) continue;
        const bool differs = asked.setting[i] != best.setting[i];
        const char* remark = HasNodeFinding_bn(nodes[i]) ? "finding"
                             : differs                   ? "differs from the most probable"
                                                         : "";
        const char* title = GetNodeTitle_bn(nodes[i]);
        rows.push_back({{GetNodeName_bn(nodes[i])},
                        {StateName(nodes[i], asked.setting[i]), differs ? "strong" : ""},
                        {title ? title : ""},
                        {remark}});
    }
    return TableMarkup("Configuration " + Title(asked), rows, 4);
}

}  // namespace

Page ConfigurationsPage(const net_bn* net, const std::vector<node_bn*>& nodes,
                        const std::vector<Configuration>& configurations)
{
    const std::string findings = DescribeFindings(net);
    Page page(NameAndTitle(GetNetName_bn(net), GetNetTitle_bn(net)), "Most probable configurations");
    page.Paragraph(findings.empty() ? "No findings." : "Findings: " + findings + ".");
    const Configuration& asked = configurations.back();
    page.Paragraph("Configuration " + Title(asked) + ": probability " +
                   Digits(std::exp(asked.log_probability)) + ", its natural logarithm " +
                   Digits(asked.log_probability, 6) + ".");
    if (configurations.size() > 1) {
        page.Section("The best configurations");
        page.Figures({Bars(configurations)});
        page.Add(Ranking(nodes, configurations));
    }
    page.Section("States of the nodes");
    page.Add(Setting(nodes, configurations.front(), asked));
    return page;
}

}  // namespace command
