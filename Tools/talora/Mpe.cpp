// talora mpe: the configuration of all nodes that explains the findings best.
#include <algorithm>
#include <climits>
#include <cmath>
#include <nlohmann/json.hpp>

#include "talora/Findings.h"
#include "talora/JsonMembers.h"
#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr int kMostInPage = 50;

class Mpe : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--nth", nth_, "Which one: 0 the most probable, 1 the next ...")
            ->check(CLI::Range(0, INT_MAX))
            ->type_name("K");
        app.add_option("--node", node_names_, "Rank the settings of these nodes only; may be repeated")
            ->allow_extra_args(false)
            ->type_name("NODE");
        html_.Define(app);
        compile_.Define(app);
        findings_.Define(app);
    }

    void Run(Session& session) override
    {
        html_.CheckUsage(session);
        net_bn* net = ReadNetForQuery(session, path_);
        std::vector<node_bn*> nodes;
        for (const std::string& name : node_names_) nodes.push_back(FindNode(net, name));
        if (nodes.empty()) nodes = ToVector(GetNetNodes2_bn(net, nullptr));
        findings_.Enter(session, net);
        compile_.Compile(session, net);
        nodelist_bn* list = NewNodeList2_bn(int(nodes.size()), net);
        for (int i = 0; i < int(nodes.size()); ++i) SetNthNode_bn(list, i, nodes[size_t(i)]);
        const Configuration asked = Find(session, net, list, nth_);
        const std::vector<state_bn>& setting = asked.setting;
        const double log_probability = asked.log_probability;
        if (html_.IsGiven())
            html_.Write(session, ConfigurationsPage(net, nodes, BestUpTo(session, net, list, asked)));
        DeleteNodeList_bn(list);
        Json& configuration = session.Field("configuration") = Json::object();
        for (size_t i = 0; i < nodes.size(); ++i) {
            if (setting[i] < 0) continue;
            const std::string name = GetNodeName_bn(nodes[i]), state = StateName(nodes[i], setting[i]);
            if (node_names_.empty())
                AddMember(configuration, name, state);
            else
                configuration[name] = state;  // may be named twice
        }
        session.Field("nth") = nth_;
        session.Field("probability") = RealOrNull(std::exp(log_probability));
        session.Field("log_probability") = RealOrNull(log_probability);
        if (!session.options.json && !html_.TakesOutput())
            Show(session, net, nodes, setting, log_probability);
    }

private:
    Configuration Find(Session& session, net_bn* net, const nodelist_bn* list, int nth) const
    {
        Configuration found;
        found.nth = nth;
        found.setting.assign(size_t(LengthNodeList_bn(list)) + 1, UNDEF_STATE);
        found.log_probability = node_names_.empty() ? MostProbableConfig_bn(net, found.setting.data(), nth)
                                                    : MostProbableSetting_bn(list, found.setting.data(), nth);
        session.Check();
        return found;
    }

    // The first ones, and last the one that was asked for.
    std::vector<Configuration> BestUpTo(Session& session, net_bn* net, const nodelist_bn* list,
                                        const Configuration& asked) const
    {
        std::vector<Configuration> best;
        for (int nth = 0; nth < std::min(asked.nth, kMostInPage); ++nth)
            best.push_back(Find(session, net, list, nth));
        best.push_back(asked);
        return best;
    }

    void Show(Session& session, const net_bn* net, const std::vector<node_bn*>& nodes,
              const std::vector<state_bn>& setting, double log_probability) const
    {
        const std::string findings = DescribeFindings(net);
        session.Print(NetHeading(net));
        session.Print(findings.empty() ? "No findings\n" : "Findings: " + findings + "\n");
        session.Print((nth_ == 0 ? "The most probable configuration"
                                 : "Configuration " + std::to_string(nth_) + " after the most probable one") +
                      "; its probability " + Number(std::exp(log_probability)) + ", its logarithm " +
                      Number(log_probability) + "\n\n");
        Columns columns;
        for (size_t i = 0; i < nodes.size(); ++i)
            if (setting[i] >= 0)
                columns.AddRow({"  " + std::string(GetNodeName_bn(nodes[i])),
                                Printable(StateName(nodes[i], setting[i])) +
                                    (HasNodeFinding_bn(nodes[i]) ? "   [finding]" : "")});
        session.Print(columns.Text());
    }

    std::string path_;
    int nth_ = 0;
    std::vector<std::string> node_names_;
    HtmlOption html_;
    CompileOptions compile_;
    FindingOptions findings_;
};

}  // namespace

std::unique_ptr<Command> MakeMpe()
{
    return std::make_unique<Mpe>();
}

}  // namespace command
