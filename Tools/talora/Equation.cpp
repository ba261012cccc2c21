// talora equation: tables from equations.
#include <nlohmann/json.hpp>

#include "talora/Command.h"
#include "talora/Formula.h"
#include "talora/NetFile.h"

namespace command {

namespace {

class Equation : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("NODE", node_name_, "Name of the node")->type_name("");
        app.add_flag("--all", all_, "Every node that has an equation");
        app.add_option("--set", equation_, "Give the node this equation first")->type_name("EQUATION");
        app.add_option("--samples", samples_, "Draws for each row where intervals have to be sampled (1000)")
            ->type_name("N");
        app.add_flag("--uncertain", uncertain_, "Keep the number of samples as the table's experience");
        app.add_option("-o,--output", out_, "File to write; - writes text to standard output")
            ->required()
            ->type_name("OUT");
    }

    void Run(Session& session) override
    {
        // 1. What contradicts itself is refused before anything is read.
        if (all_ == !node_name_.empty()) throw WrongUsage("either a node or --all is required");
        if (all_ && !equation_.empty()) throw WrongUsage("--set is for one node");
        if (out_ == "-" && session.options.json)
            throw WrongUsage("the net and the JSON document cannot both go to standard output");
        net_bn* net = ReadNet(session, path_);
        if (!session.options.seed.empty()) {
            SetNetRandomGen_bn(net,
                               NewRandomGenerator_vx(session.options.seed.c_str(), session.env, nullptr));
            session.Check();
        }
        // 2. Tables one by one; the net is written only if all could be built.
        session.Field("nodes") = Json::array();
        for (node_bn* node : Nodes(net)) Build(session, node);
        WriteNet(session, net, out_);
    }

private:
    std::vector<node_bn*> Nodes(net_bn* net) const
    {
        if (!all_) return {FindNode(net, node_name_)};
        std::vector<node_bn*> nodes;
        for (node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr)))
            if (*GetNodeEquation_bn(node)) nodes.push_back(node);
        return nodes;
    }

    // The equation is checked first, for a message that shows the place of the mistake.
    void Build(Session& session, node_bn* node) const
    {
        const char* const given = equation_.empty() ? nullptr : equation_.c_str();
        const std::string mistake = ExplainEquation(session, node, given);
        if (!mistake.empty())
            throw CommandFailed("node '" + std::string(GetNodeName_bn(node)) + "': " + mistake);
        if (given) SetNodeEquation_bn(node, given);
        EquationToTable_bn(node, samples_, uncertain_, false);
        session.Check();
        session.Field("nodes").push_back(GetNodeName_bn(node));
        if (out_ != "-") session.Print("table of " + std::string(GetNodeName_bn(node)) + " is built\n");
    }

    std::string path_, node_name_, equation_, out_;
    int samples_ = 1000;
    bool all_ = false, uncertain_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeEquation()
{
    return std::make_unique<Equation>();
}

}  // namespace command
