// talora learn: tables from cases.
#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "talora/CaseFiles.h"
#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

constexpr struct {
    const char* word;
    int method;
} kMethods[] = {{"counting", 1}, {"mindep", 2}, {"em", 3}, {"gradient", 4}};

// The present tables, uniform where there are none, count as so many cases for each row.
void SetPrior(const std::vector<node_bn*>& nodes, double experience)
{
    for (node_bn* node : nodes) {
        if (GetNodeKind_bn(node) != NATURE_NODE || GetNodeNumberStates_bn(node) == 0) continue;
        const std::vector<node_bn*> parents = ToVector(GetNodeParents_bn(node));
        if (std::any_of(parents.begin(), parents.end(),
                        [](const node_bn* parent) { return GetNodeNumberStates_bn(parent) == 0; }))
            continue;
        const std::vector<state_bn> every(parents.size() + 1, EVERY_STATE);
        SetNodeExperience_bn(node, every.data(), experience);
    }
}

class Learn : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--cases", case_paths_, "Case files, - for standard input")
            ->required()
            ->type_name("FILE");
        app.add_option(
               "--method", method_,
               "counting (complete cases), mindep (counting that leans to independence where cases are "
               "few), em or gradient (cases with gaps, hidden nodes)")
            ->type_name("WORD")
            ->check(CLI::IsMember({"counting", "mindep", "em", "gradient"}));
        app.add_option("--degree", degree_, "Each case counts so many times (1)")->type_name("D");
        app.add_option(
               "--prior", prior_,
               "The tables of the net, uniform where there are none, count as so many cases a row first")
            ->type_name("N")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--node", node_names_, "Learn only this node; may be repeated")
            ->allow_extra_args(false)
            ->type_name("NODE");
        app.add_option("--max-iters", max_iters_, "Most iterations of em and gradient (1000)")
            ->type_name("N")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--tolerance", tolerance_,
                       "They stop when minus the log likelihood changes by a smaller share (1e-5)")
            ->type_name("T")
            ->check(CLI::NonNegativeNumber);
        app.add_option("-o,--output", out_, "File to write; - writes text to standard output")
            ->required()
            ->type_name("OUT");
    }

    void Run(Session& session) override
    {
        if (out_ == "-" && session.options.json)
            throw WrongUsage("the net and the JSON document cannot both go to standard output");
        net_bn* net = ReadNetForQuery(session, path_);
        std::vector<node_bn*> nodes;
        for (const std::string& name : node_names_) nodes.push_back(FindNode(net, name));
        if (nodes.empty()) nodes = ToVector(GetNetNodes2_bn(net, nullptr));
        const caseset_cs* cases = ReadCases(session, case_paths_);
        if (prior_ > 0) SetPrior(nodes, prior_);
        session.Check();
        const learner_bn* learner = LearnFrom(session, ToList(net, nodes), cases);
        Report(session, learner);
        WriteNet(session, net, out_);
    }

private:
    learner_bn* LearnFrom(Session& session, const nodelist_bn* nodes, const caseset_cs* cases) const
    {
        const auto* chosen = std::find_if(std::begin(kMethods), std::end(kMethods),
                                          [this](const auto& row) { return method_ == row.word; });
        learner_bn* learner = NewLearner_bn(chosen->method, session.env);
        SetLearnerMaxIters_bn(learner, max_iters_);
        SetLearnerMaxTol_bn(learner, tolerance_);
        // Hidden nodes start from random tables, the same ones without a seed.
        const std::string& seed = session.options.seed;
        SetLearnerRandomGen_bn(
            learner, NewRandomGenerator_vx(seed.empty() ? "0" : seed.c_str(), session.env, nullptr));
        session.Check();
        LearnCPTs_bn(learner, nodes, cases, degree_);
        session.Check();
        return learner;
    }

    void Report(Session& session, const learner_bn* learner) const
    {
        Json& iterations = session.Field("iterations") = Json::array();
        const int count = GetLearnerNumIterations_bn(learner);
        Columns columns;
        columns.AddRow({"iteration", "minus log likelihood", "change"});
        for (int i = 0; i < count; ++i) {
            double change = 0;
            const double likelihood = GetLearnerIteration_bn(learner, i, &change);
            iterations.push_back(
                {{"iteration", i}, {"minus_log_likelihood", likelihood}, {"change", RealOrNull(change)}});
            columns.AddRow({std::to_string(i), Number(likelihood), i == 0 ? "" : Number(change)});
        }
        const int64_t cases = GetLearnerNumCases_bn(learner);
        session.Field("cases") = cases;
        if (out_ == "-") return;
        if (count > 0) session.Print(columns.Text(0));
        session.Print("learned from " + std::to_string(cases) + " cases\n");
    }

    std::string path_, out_, method_ = "counting";
    std::vector<std::string> case_paths_, node_names_;
    double degree_ = 1, prior_ = 0, tolerance_ = 1e-5;
    int max_iters_ = 1000;
};

}  // namespace

std::unique_ptr<Command> MakeLearn()
{
    return std::make_unique<Learn>();
}

}  // namespace command
