// talora info: what is in a net.
#include <nlohmann/json.hpp>

#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr int kStatesColumn = 36;

bool HasEquation(const node_bn* node)
{
    const char* equation = GetNodeEquation_bn(node);
    return equation && *equation;
}

Json Describe(const node_bn* node)
{
    Json json;
    json["name"] = GetNodeName_bn(node);
    json["title"] = TextOrNull(GetNodeTitle_bn(node));
    json["kind"] = KindWord(node);
    json["type"] = TypeWord(node);
    json["num_states"] = GetNodeNumberStates_bn(node);
    json["states"] = StateNames(node);
    json["levels"] = LevelsOrNull(node);
    json["parents"] = NodeNames(GetNodeParents_bn(node));
    json["table_entries"] = RealOrNull(SizeNodeTable_bn(node));
    json["has_table"] = HasNodeTable_bn(node, nullptr) != 0;
    json["has_equation"] = HasEquation(node);
    return json;
}

std::string Join(const std::vector<std::string>& words, int width)
{
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string next = (i ? ", " : "") + words[i];
        if (static_cast<int>(text.size() + next.size()) > width)
            return text + ", ... (" + std::to_string(words.size()) + ")";
        text += next;
    }
    return text;
}

// The names in a column of limited width, or how many there are.
std::string StatesColumn(const node_bn* node)
{
    const int num_states = GetNodeNumberStates_bn(node);
    if (num_states > kMostStatesListed) return std::to_string(num_states) + " states";
    return Join(StateNames(node), kStatesColumn);
}

std::string TableColumn(const node_bn* node)
{
    bool_vx complete = 0;
    std::string text = HasEquation(node) ? "equation" : "none";
    if (HasNodeTable_bn(node, &complete))
        text = Number(SizeNodeTable_bn(node)) + (complete ? "" : ", incomplete");
    return text;
}

class Info : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
    }

    void Run(Session& session) override
    {
        std::string format;
        const net_bn* net = ReadNet(session, path_, &format);
        session.Field("net") = GetNetName_bn(net);
        session.Field("format") = format;
        session.Field("title") = TextOrNull(GetNetTitle_bn(net));
        session.Field("comment") = TextOrNull(GetNetComment_bn(net));
        Json& nodes = session.Field("nodes") = Json::array();
        Columns columns;
        columns.AddRow({"node", "kind", "type", "states", "table", "parents"});
        int num_links = 0;
        for (const node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr))) {
            const std::vector<std::string> parents = NodeNames(GetNodeParents_bn(node));
            num_links += static_cast<int>(parents.size());
            nodes.push_back(Describe(node));
            columns.AddRow({GetNodeName_bn(node), KindWord(node), TypeWord(node), StatesColumn(node),
                            TableColumn(node), Join(parents, 1000)});
        }
        session.Check();
        session.Print(NetHeading(net) + "format " + format + ", " + std::to_string(nodes.size()) +
                      " nodes, " + std::to_string(num_links) + " links\n\n" + columns.Text());
    }

private:
    std::string path_;
};

}  // namespace

std::unique_ptr<Command> MakeInfo()
{
    return std::make_unique<Info>();
}

}  // namespace command
