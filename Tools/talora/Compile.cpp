// talora compile: the junction tree of a net.
#include <nlohmann/json.hpp>

#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

// The clique that this one hangs on: the neighbour that comes before it; null for the root.
Json JoinedTo(const net_bn* net, int clique)
{
    const int num_neighbors = GetCliqueNumNeighbors_bn(net, clique);
    for (int i = 0; i < num_neighbors; ++i) {
        const int neighbor = GetCliqueNeighbor_bn(net, clique, i);
        if (neighbor < clique) return neighbor;
    }
    return nullptr;
}

// One object per clique; the nodes whose tables it holds are added in a second pass over the nodes.
Json DescribeCliques(const net_bn* net)
{
    Json cliques = Json::array();
    const int num_cliques = GetNetNumCliques_bn(net);
    for (int i = 0; i < num_cliques; ++i) {
        Json clique;
        clique["index"] = i;
        clique["members"] = NodeNames(GetCliqueNodes_bn(net, i));
        clique["joined_to"] = JoinedTo(net, i);
        clique["size"] = RealOrNull(GetCliqueSize_bn(net, i));
        clique["home_of"] = Json::array();
        cliques.push_back(std::move(clique));
    }
    for (const node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr))) {
        const int home = GetNodeHomeClique_bn(node);
        if (home >= 0 && home < num_cliques) cliques[home]["home_of"].push_back(GetNodeName_bn(node));
    }
    return cliques;
}

// Sizes in entries, and in megabytes where that matters for memory.
std::string Summary(const net_bn* net, const Json& cliques, const std::string& order)
{
    double sum_cliques = 0, sum_all = 0, sum_under_findings = 0, largest = 0;
    GetCompiledNetSizes_bn(net, &sum_cliques, &sum_all, &sum_under_findings);
    for (const Json& clique : cliques) largest = std::max(largest, clique["size"].get<double>());
    Columns lines;
    lines.AddRow({"cliques", Number(static_cast<double>(cliques.size()))});
    lines.AddRow({"largest clique", Number(largest) + " entries"});
    lines.AddRow({"all cliques", Number(sum_cliques) + " entries"});
    lines.AddRow({"with separators",
                  Number(sum_all) + " entries, " + Number(sum_all * sizeof(prob_bn) / 1e6) + " MB"});
    lines.AddRow({"under the findings", Number(sum_under_findings) + " entries"});
    lines.AddRow({"cost of the order", Number(GetNetElimCost_bn(net))});
    lines.AddRow({"elimination order", order});
    return NetHeading(net) + lines.Text();
}

class Compile : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_flag("--report", report_, "The whole junction tree, clique by clique");
        compile_.Define(app);
        findings_.Define(app);
    }

    void Run(Session& session) override
    {
        net_bn* net = ReadNetForQuery(session, path_);
        findings_.Enter(session, net);
        compile_.Compile(session, net);
        AddFields(session, net);
        session.Check();
        std::string order;
        for (const Json& name : session.Field("elimination_order"))
            order += (order.empty() ? "" : ", ") + name.get<std::string>();
        session.Print(Summary(net, session.Field("cliques"), order));
        if (!report_) return;
        const char* report = ReportJunctionTree_bn(net);
        session.Check();
        session.Field("report") = report;
        session.Print("\n" + PrintableLines(report));
    }

private:
    static void AddFields(Session& session, const net_bn* net)
    {
        double sum_cliques = 0, sum_all = 0, sum_under_findings = 0;
        GetCompiledNetSizes_bn(net, &sum_cliques, &sum_all, &sum_under_findings);
        session.Field("elimination_order") = NodeNames(GetNetElimOrder_bn(net));
        session.Field("cost") = RealOrNull(GetNetElimCost_bn(net));
        session.Field("cliques") = DescribeCliques(net);
        session.Field("sum_clique_sizes") = RealOrNull(sum_cliques);
        session.Field("sum_with_separators") = RealOrNull(sum_all);
        session.Field("sum_under_findings") = RealOrNull(sum_under_findings);
    }

    std::string path_;
    bool report_ = false;
    CompileOptions compile_;
    FindingOptions findings_;
};

}  // namespace

std::unique_ptr<Command> MakeCompile()
{
    return std::make_unique<Compile>();
}

}  // namespace command
