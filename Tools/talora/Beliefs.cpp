// talora beliefs: how probable each state is, given findings.
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "talora/Findings.h"
#include "talora/JsonMembers.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr int kLongestBar = 50;

// Two decimals, or two digits where these would show 0.
std::string Percent(double probability)
{
    char text[32];
    const bool is_tiny = probability > 0 && probability < 0.00005;
    snprintf(text, sizeof text, is_tiny ? "%.1e %%" : "%.2f %%", 100 * probability);
    return text;
}

std::string StateLabel(const node_bn* node, state_bn state)
{
    char label[256] = "";
    GetNodeStateLabel_bn(node, state, nullptr, label, sizeof label);
    return Printable(label);
}

// A node with a line for each state: label, percentage, bar.
std::string Bars(const node_bn* node, const prob_bn* beliefs, const Json& expected)
{
    const int num_states = GetNodeNumberStates_bn(node);
    int label_width = 0;
    std::vector<std::string> labels;
    for (state_bn state = 0; state < num_states; ++state) {
        labels.push_back(StateLabel(node, state));
        label_width = std::max(label_width, DisplayWidth(labels.back()));
    }
    const std::string name = GetNodeName_bn(node), title = Printable(GetNodeTitle_bn(node));
    std::string text = name + (title.empty() || title == name ? "" : ": " + title);
    if (!expected.is_null() && !expected["mean"].is_null())
        text += "   mean " + Number(expected["mean"]) + ", standard deviation " + Number(expected["sd"]);
    if (HasNodeFinding_bn(node)) text += "   [finding]";
    text += "\n";
    const int bar_width = std::clamp(TerminalColumns() - label_width - 16, 10, kLongestBar);
    for (state_bn state = 0; state < num_states; ++state) {
        std::string line = "  " + PadRight(labels[state], label_width) + "  " +
                           PadLeft(Percent(beliefs[state]), 9) + "  " + Bar(beliefs[state], bar_width);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text + "\n";
}

class Beliefs : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--node", node_names_, "Only this node; may be repeated")
            ->allow_extra_args(false)
            ->type_name("NODE");
        compile_.Define(app);
        findings_.Define(app);
    }

    void Run(Session& session) override
    {
        net_bn* net = ReadNetForQuery(session, path_);
        const std::vector<node_bn*> nodes = ChooseNodes(net);
        findings_.Enter(session, net);
        // 1. Few nodes: without a junction tree.
        if (CanAskForFew(net, nodes) && AskForFew(session, net, nodes)) return;
        // 2. All of them: compiled once, beliefs read from the tree.
        compile_.Compile(session, net);
        AddProbability(session, net);
        Json& beliefs = session.Field("beliefs") = Json::object();
        Json& expected = session.Field("expected_values") = Json::object();
        for (node_bn* node : nodes) {
            const prob_bn* vector = GetNodeBeliefs_bn(node);
            session.Check();
            if (!vector)
                throw CommandFailed("node '" + std::string(GetNodeName_bn(node)) + "' has no beliefs");
            AddNode(beliefs, expected, node, vector);
        }
        session.Check();
        Show(session, net, nodes);
    }

private:
    // Those named, each once; without names all that have beliefs.
    std::vector<node_bn*> ChooseNodes(const net_bn* net) const
    {
        std::vector<node_bn*> nodes;
        for (const std::string& name : node_names_) {
            node_bn* const node = FindNode(net, name);
            if (std::find(nodes.begin(), nodes.end(), node) == nodes.end()) nodes.push_back(node);
        }
        if (!node_names_.empty()) return nodes;
        nodes = ToVector(GetNetNodes2_bn(net, nullptr));
        std::erase_if(nodes, [](const node_bn* node) { return !HasBeliefs(node); });
        return nodes;
    }

    // Few nodes of a net are found without a junction tree of all of it, except where there is more to
    // say of them than beliefs.
    bool CanAskForFew(const net_bn* net, const std::vector<node_bn*>& nodes) const
    {
        if (node_names_.empty() || compile_.optimize_seconds > 0 || GetNetMostProbable_bn(net)) return false;
        return std::all_of(nodes.begin(), nodes.end(), [](const node_bn* node) {
            return HasBeliefs(node) && GetNodeLevels_bn(node) == nullptr;
        });
    }

    // False if there is something wrong; asking in the other way then says what.
    bool AskForFew(Session& session, net_bn* net, const std::vector<node_bn*>& nodes) const
    {
        nodelist_bn* list = NewNodeList2_bn(int(nodes.size()), net);
        for (int i = 0; i < int(nodes.size()); ++i) SetNthNode_bn(list, i, nodes[size_t(i)]);
        double log_probability = 0;
        const prob_bn* vectors = QueryBeliefs_bn(list, &log_probability);
        DeleteNodeList_bn(list);
        if (vectors == nullptr) {
            while (const report_vx* error = GetError_vx(session.env, ERROR_SEVERITY, 0, nullptr))
                ClearError_vx(const_cast<report_vx*>(error));
            return false;
        }
        session.Field("probability_of_findings") = std::exp(log_probability);
        session.Field("log_probability_of_findings") = RealOrNull(log_probability);
        Json& beliefs = session.Field("beliefs") = Json::object();
        Json& expected = session.Field("expected_values") = Json::object();
        std::string bars;
        for (node_bn* node : nodes) {
            AddNode(beliefs, expected, node, vectors);
            bars += Bars(node, vectors, Json());
            vectors += GetNodeNumberStates_bn(node);
        }
        session.Check();
        if (!session.options.json) session.Print(Heading(net, log_probability) + bars);
        return true;
    }

    // Findings that contradict one another still have a probability, 0, so it comes first.
    static void AddProbability(Session& session, net_bn* net)
    {
        // The logarithm first: it distinguishes a contradiction from a probability too small for a double.
        const double log_probability = LogFindingsProbability_bn(net);
        session.Field("probability_of_findings") = nullptr;
        session.Field("log_probability_of_findings") = RealOrNull(log_probability);
        if (log_probability == -GetInfinityDbl_vx()) session.Field("probability_of_findings") = 0.0;
        session.Check();
        session.Field("probability_of_findings") = FindingsProbability_bn(net);
    }

    static void AddNode(Json& beliefs, Json& expected, node_bn* node, const prob_bn* vector)
    {
        const char* name = GetNodeName_bn(node);
        Json& states = AddMember(beliefs, name, Json::object());
        const int num_states = GetNodeNumberStates_bn(node);
        for (state_bn state = 0; state < num_states; ++state)
            AddMember(states, StateName(node, state), Probability(vector[state]));
        if (!GetNodeLevels_bn(node)) return;
        double sd = 0;
        const double mean = GetNodeExpectedValue_bn(node, &sd);
        const bool exists = !RealOrNull(mean).is_null();
        AddMember(expected, name,
                  {{"mean", RealOrNull(mean)}, {"sd", exists ? RealOrNull(sd) : Json(nullptr)}});
    }

    // Net, findings and their probability, which may be too small for anything but its logarithm.
    static std::string Heading(const net_bn* net, double log_probability)
    {
        const std::string findings = DescribeFindings(net);
        return NetHeading(net) +
               (findings.empty()
                    ? "No findings\n\n"
                    : "Findings: " + findings + "\nTheir probability: " + Number(std::exp(log_probability)) +
                          ", its logarithm " + Number(log_probability) + "\n\n");
    }

    static void Show(Session& session, net_bn* net, const std::vector<node_bn*>& nodes)
    {
        if (session.options.json) return;
        session.Print(Heading(net, LogFindingsProbability_bn(net)));
        const Json& expected = session.Field("expected_values");
        for (node_bn* node : nodes) {
            const auto found = expected.find(GetNodeName_bn(node));
            session.Print(Bars(node, GetNodeBeliefs_bn(node), found == expected.end() ? Json() : *found));
        }
    }

    std::string path_;
    std::vector<std::string> node_names_;
    CompileOptions compile_;
    FindingOptions findings_;
};

}  // namespace

std::unique_ptr<Command> MakeBeliefs()
{
    return std::make_unique<Beliefs>();
}

}  // namespace command
