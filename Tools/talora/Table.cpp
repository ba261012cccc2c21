// talora table: the table of a node, row by row.
#include <nlohmann/json.hpp>

#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

// Steps to the next row, the last parent fastest; false after the last row.
bool NextRow(const std::vector<node_bn*>& parents, std::vector<state_bn>& states)
{
    for (size_t i = parents.size(); i-- > 0;) {
        if (++states[i] < GetNodeNumberStates_bn(parents[i])) return true;
        states[i] = 0;
    }
    return false;
}

// An entry: a number, null where none is given yet.
Json Entry(prob_bn entry)
{
    return IsMissingProb_bn(entry) || IsImpossibleProb_bn(entry) ? Json(nullptr) : Probability(entry);
}

std::string EntryText(prob_bn entry)
{
    if (IsMissingProb_bn(entry)) return "?";
    return IsImpossibleProb_bn(entry) ? "impossible" : ShortestNumber(entry);
}

class Table : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("NODE", node_name_, "Name of the node")->required()->type_name("");
    }

    void Run(Session& session) override
    {
        const net_bn* net = ReadNet(session, path_);
        const node_bn* node = FindNode(net, node_name_);
        session.Field("node") = node_name_;
        session.Field("parents") = NodeNames(GetNodeParents_bn(node));
        session.Field("states") = StateNames(node);
        session.Field("equation") = TextOrNull(GetNodeEquation_bn(node));
        session.Field("rows") = nullptr;
        session.Print(Heading(node));
        if (HasNodeTable_bn(node, nullptr)) AddRows(session, node);
        session.Check();
    }

private:
    static std::string Heading(const node_bn* node)
    {
        std::string text = GetNodeName_bn(node);
        const std::vector<std::string> parents = NodeNames(GetNodeParents_bn(node));
        for (size_t i = 0; i < parents.size(); ++i) text += (i ? ", " : " given ") + parents[i];
        const std::string equation = Printable(GetNodeEquation_bn(node));
        if (!equation.empty()) text += "\nequation: " + equation;
        return text + (HasNodeTable_bn(node, nullptr) ? "\n\n" : "\nno table\n");
    }

    static void AddRows(Session& session, const node_bn* node)
    {
        const std::vector<node_bn*> parents = ToVector(GetNodeParents_bn(node));
        const bool has_probs = GetNodeTable_bn(node, nullptr) != nullptr;
        std::vector<state_bn> states(parents.size(), 0);
        Json& rows = session.Field("rows") = Json::array();
        Columns columns;
        std::vector<std::string> head = NodeNames(GetNodeParents_bn(node));
        if (has_probs)
            for (const Json& state : session.Field("states")) head.push_back(state);
        else
            head.emplace_back(GetNodeName_bn(node));
        columns.AddRow(std::move(head));
        do {
            Json row;
            std::vector<std::string> cells;
            row["parent_states"] = Json::array();
            for (size_t i = 0; i < parents.size(); ++i) {
                cells.push_back(StateName(parents[i], states[i]));
                row["parent_states"].push_back(cells.back());
            }
            if (has_probs)
                AddProbs(node, states, row, cells);
            else
                AddFunction(node, states, row, cells);
            const double experience = GetNodeExperience_bn(node, states.data());
            if (experience != GetUndefDbl_vx()) row["experience"] = RealOrNull(experience);
            if (session.options.json)
                rows.push_back(std::move(row));
            else
                columns.AddRow(std::move(cells));
        } while (NextRow(parents, states));
        session.Print(columns.Text(parents.size()));
    }

    static void AddProbs(const node_bn* node, const std::vector<state_bn>& states, Json& row,
                         std::vector<std::string>& cells)
    {
        const prob_bn* probs = GetNodeProbs_bn(node, states.data());
        const int num_states = GetNodeNumberStates_bn(node);
        row["probs"] = Json::array();
        for (state_bn state = 0; probs && state < num_states; ++state) {
            row["probs"].push_back(Entry(probs[state]));
            cells.push_back(EntryText(probs[state]));
        }
        if (probs && num_states > 0 && IsImpossibleProb_bn(probs[0])) row["impossible"] = true;
    }

    // Deterministic nodes: a state, or a value where there are no states.
    static void AddFunction(const node_bn* node, const std::vector<state_bn>& states, Json& row,
                            std::vector<std::string>& cells)
    {
        if (GetNodeType_bn(node) == DISCRETE_TYPE) {
            const state_bn state = GetNodeFuncState_bn(node, states.data());
            row["state"] = state >= 0 ? Json(StateName(node, state)) : Json(nullptr);
            cells.push_back(state >= 0 ? StateName(node, state) : state == IMPOSS_STATE ? "impossible" : "?");
        } else {
            const double value = GetNodeFuncReal_bn(node, states.data());
            const bool impossible = GetNodeFuncState_bn(node, states.data()) == IMPOSS_STATE;
            row["value"] = RealOrNull(value);
            cells.push_back(impossible ? "impossible" : Number(value));
        }
    }

    std::string path_, node_name_;
};

}  // namespace

std::unique_ptr<Command> MakeTable()
{
    return std::make_unique<Table>();
}

}  // namespace command
