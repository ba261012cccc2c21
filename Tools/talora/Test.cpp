// talora test: how well a net predicts some of its nodes, measured with cases.
#include <nlohmann/json.hpp>

#include "talora/CaseFiles.h"
#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Pages.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr const char* kStateMeasures[] = {
    "sensitivity", "specificity", "predictive_value", "negative_predictive_value", "Gini_score", "AUROC"};
constexpr const char* kRealMeasures[] = {"cases",
                                         "mean_absolute_error",
                                         "max_absolute_error",
                                         "rms_error",
                                         "mean_relative_error",
                                         "max_relative_error",
                                         "mean_deviations",
                                         "max_deviations",
                                         "within_1_deviation",
                                         "from_1_to_2_deviations",
                                         "from_2_to_3_deviations",
                                         "above_3_deviations"};

Json Confusion(const tester_bn* tester, const node_bn* node)
{
    Json rows = Json::array();
    const int num_states = GetNodeNumberStates_bn(node);
    for (state_bn actual = 0; actual < num_states; ++actual) {
        Json row = Json::array();
        for (state_bn predicted = 0; predicted < num_states; ++predicted)
            row.push_back(GetTestConfusion_bn(tester, node, predicted, actual));
        rows.push_back(std::move(row));
    }
    return rows;
}

Json States(const tester_bn* tester, const node_bn* node)
{
    Json states = Json::object();
    const int num_states = GetNodeNumberStates_bn(node);
    for (state_bn state = 0; state < num_states; ++state) {
        Json& measures = states[StateName(node, state)] = Json::object();
        for (const char* name : kStateMeasures)
            measures[name] = RealOrNull(GetTestStateMeasure_bn(tester, node, state, name, GetUndefDbl_vx()));
    }
    return states;
}

Json RealValues(const tester_bn* tester, const node_bn* node)
{
    if (GetTestRealMeasure_bn(tester, node, "cases") <= 0) return nullptr;
    Json measures = Json::object();
    for (const char* name : kRealMeasures)
        measures[name] = RealOrNull(GetTestRealMeasure_bn(tester, node, name));
    return measures;
}

Json Figures(const tester_bn* tester, const node_bn* node)
{
    double all = 0, impossible = 0;
    const double cases = GetTestNumCases_bn(tester, node, &all, &impossible);
    Json figures = Json::object();
    figures["error_rate"] = RealOrNull(GetTestErrorRate_bn(tester, node));
    figures["log_loss"] = RealOrNull(GetTestLogLoss_bn(tester, node));
    figures["quadratic_loss"] = RealOrNull(GetTestQuadraticLoss_bn(tester, node));
    figures["spherical_payoff"] = RealOrNull(GetTestSphericalPayoff_bn(tester, node));
    figures["confusion"] = Confusion(tester, node);
    figures["cases"] = cases;
    const bool has_two = GetNodeNumberStates_bn(node) == 2;
    figures["auroc"] =
        has_two ? RealOrNull(GetTestStateMeasure_bn(tester, node, 0, "AUROC", GetUndefDbl_vx())) : Json();
    figures["states"] = States(tester, node);
    figures["real"] = RealValues(tester, node);
    figures["cases_read"] = all;
    figures["impossible_cases"] = impossible;
    return figures;
}

class Test : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--cases", case_files_, "Files of cases")->required()->type_name("FILE");
        app.add_option("--node", nodes_, "Node to be predicted; may be repeated")
            ->required()
            ->type_name("NODE");
        app.add_option("--unobserved", unobserved_, "Further node whose value is kept from the net")
            ->type_name("NODE");
        html_.Define(app);
    }

    void Run(Session& session) override
    {
        html_.CheckUsage(session);
        net_bn* net = ReadNetForQuery(session, path_);
        std::vector<node_bn*> nodes, unobserved;
        for (const std::string& name : nodes_) nodes.push_back(FindNode(net, name));
        for (const std::string& name : unobserved_) unobserved.push_back(FindNode(net, name));
        tester_bn* tester = NewNetTester_bn(ToList(net, nodes), ToList(net, unobserved), -1);
        session.Check();
        const caseset_cs* cases = ReadCases(session, case_files_);
        TestWithCaseset_bn(tester, cases);
        session.Check();
        Json& figures = session.Field("nodes") = Json::object();
        for (const node_bn* node : nodes) figures[GetNodeName_bn(node)] = Figures(tester, node);
        if (html_.IsGiven()) html_.Write(session, TestPage(tester, net, nodes));
        if (!session.options.json && !html_.TakesOutput())
            session.Print(PrintableLines(ReportNetTest_bn(tester, nullptr)));
        session.Check();
    }

private:
    std::string path_;
    std::vector<std::string> case_files_, nodes_, unobserved_;
    HtmlOption html_;
};

}  // namespace

std::unique_ptr<Command> MakeTest()
{
    return std::make_unique<Test>();
}

}  // namespace command
