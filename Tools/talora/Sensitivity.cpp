// talora sensitivity: which further findings would be most informative about a node.
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr int kMeasures = ENTROPY_SENSV | NODEVAR_SENSV;
constexpr int kReal = REAL_SENSV | VARIANCE_SENSV;
constexpr int kForPairs = BELIEF_SENSV | VARIANCE_SENSV | RANGE_SENSV;

struct MeasurerDeleter {
    void operator()(sensv_bn* sensv) const { DeleteSensvToFinding_bn(sensv); }
};
using Measurer = std::unique_ptr<sensv_bn, MeasurerDeleter>;

class Sensitivity : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--query", query_name_, "The node to learn about")->required()->type_name("NODE");
        app.add_option("--vary", varying_names_, "A node where there might be a finding; all others if none")
            ->allow_extra_args(false)
            ->type_name("NODE");
        app.add_flag("--report", report_, "How each varying node changes beliefs, node by node");
        app.add_option("--lower", lower_, "Stands for minus infinity as a bound of the query node's value")
            ->type_name("VALUE");
        app.add_option("--upper", upper_, "Stands for infinity as a bound of the query node's value")
            ->type_name("VALUE");
        html_.Define(app);
        compile_.Define(app);
        findings_.Define(app);
    }

    void Run(Session& session) override
    {
        html_.CheckUsage(session);
        net_bn* net = ReadNetForQuery(session, path_);
        const node_bn* query = FindNode(net, query_name_);
        const std::vector<node_bn*> varying = ChooseNodes(net, query);
        findings_.Enter(session, net);
        compile_.Compile(session, net);
        const Measurer sensv = Measure(session, net, query, varying);
        AddFields(session, sensv.get(), query, varying);
        if (html_.IsGiven()) html_.Write(session, SensitivityPage(sensv.get(), net, varying, has_real_));
        if (html_.TakesOutput() || (session.options.json && !report_)) return;
        Show(session, sensv.get(), net, varying);
    }

private:
    std::vector<node_bn*> ChooseNodes(const net_bn* net, const node_bn* query) const
    {
        std::vector<node_bn*> nodes;
        for (const std::string& name : varying_names_) nodes.push_back(FindNode(net, name));
        if (!varying_names_.empty()) return nodes;
        nodes = ToVector(GetNetNodes2_bn(net, nullptr));
        std::erase_if(nodes, [&](const node_bn* node) {
            const nodekind_bn kind = GetNodeKind_bn(node);
            return node == query || (kind != NATURE_NODE && kind != DECISION_NODE) ||
                   GetNodeNumberStates_bn(node) == 0;
        });
        return nodes;
    }

    // Whether every state of the query node has a value; infinite: only with bounds.
    static bool HasValues(const node_bn* query, bool& below, bool& above)
    {
        const level_bn* levels = GetNodeLevels_bn(query);
        if (levels == nullptr) return false;
        const int count = GetNodeNumberStates_bn(query) + (GetNodeType_bn(query) == DISCRETE_TYPE ? 0 : 1);
        below = std::find(levels, levels + count, -GetInfinityDbl_vx()) != levels + count;
        above = std::find(levels, levels + count, GetInfinityDbl_vx()) != levels + count;
        return std::find(levels, levels + count, GetUndefDbl_vx()) == levels + count;
    }

    Measurer Measure(Session& session, net_bn* net, const node_bn* query,
                     const std::vector<node_bn*>& varying)
    {
        bool below = false, above = false;
        const bool has_values = HasValues(query, below, above);
        const double undefined = GetUndefDbl_vx();
        has_real_ = has_values && !(below && lower_ == undefined) && !(above && upper_ == undefined);
        nodelist_bn* list = NewNodeList2_bn(int(varying.size()), net);
        for (size_t i = 0; i < varying.size(); ++i) SetNthNode_bn(list, int(i), varying[i]);
        const int flags = kMeasures | (has_values ? kReal : 0) | (report_ || html_.IsGiven() ? kForPairs : 0);
        Measurer sensv(NewSensvToFinding_bn(query, list, flags));
        DeleteNodeList_bn(list);
        session.Check();
        if (below || above)
            SetSensvRealBounds_bn(sensv.get(), below ? lower_ : undefined, above ? upper_ : undefined);
        session.Check();
        return sensv;
    }

    void AddFields(Session& session, sensv_bn* sensv, const node_bn* query,
                   const std::vector<node_bn*>& varying) const
    {
        session.Field("query") = GetNodeName_bn(query);
        session.Field("entropy") = RealOrNull(GetMutualInfo_bn(sensv, query));
        session.Field("belief_variance") = RealOrNull(GetVarianceOfBeliefs_bn(sensv, query));
        session.Check();
        Json& rows = session.Field("rows") = Json::array();
        for (const node_bn* node : varying) {
            Json row;
            row["node"] = GetNodeName_bn(node);
            row["mutual_info"] = RealOrNull(GetMutualInfo_bn(sensv, node));
            row["variance_of_beliefs"] = RealOrNull(GetVarianceOfBeliefs_bn(sensv, node));
            row["variance_of_real"] =
                has_real_ ? RealOrNull(GetVarianceOfReal_bn(sensv, node)) : Json(nullptr);
            rows.push_back(std::move(row));
        }
        session.Check();
    }

    void Show(Session& session, sensv_bn* sensv, const net_bn* net,
              const std::vector<node_bn*>& varying) const
    {
        const std::string findings = DescribeFindings(net);
        session.Print(NetHeading(net));
        session.Print(findings.empty() ? "No findings\n\n" : "Findings: " + findings + "\n\n");
        std::string report = ReportText(session, ReportSensvToAll_bn(sensv));
        for (size_t i = 0; report_ && i < varying.size(); ++i)
            report += (i == 0 ? "\n" : "") + ReportText(session, ReportSensvToNode_bn(sensv, varying[i]));
        session.Print(PrintableLines(report));
        if (report_) session.Field("report") = report;
    }

    static std::string ReportText(Session& session, const char* report)
    {
        session.Check();
        return report;
    }

    std::string path_, query_name_;
    std::vector<std::string> varying_names_;
    double lower_ = GetUndefDbl_vx(), upper_ = GetUndefDbl_vx();
    bool report_ = false, has_real_ = false;
    HtmlOption html_;
    CompileOptions compile_;
    FindingOptions findings_;
};

}  // namespace

std::unique_ptr<Command> MakeSensitivity()
{
    return std::make_unique<Sensitivity>();
}

}  // namespace command
