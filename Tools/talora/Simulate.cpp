// talora simulate: random cases from a net, or all of them.
#include <algorithm>
#include <climits>
#include <nlohmann/json.hpp>

#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Text.h"

namespace command {

namespace {

constexpr struct {
    const char* word;
    int method;
} kMethods[] = {{"auto", AUTO_SAMPLING}, {"forward", FORWARD_SAMPLING}, {"tree", TREE_SAMPLING}};

class Simulate : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--cases", num_cases_, "How many cases")
            ->type_name("N")
            ->check(CLI::Range(int64_t{0}, int64_t{1} << 52));
        app.add_option("-o,--output", out_, "Case file to write; - for standard output")
            ->required()
            ->type_name("FILE");
        app.add_option("--missing", percent_missing_, "So many percent of the entries are left out (0)")
            ->type_name("PERCENT")
            ->check(CLI::Range(0.0, 100.0));
        app.add_option("--method", method_, "forward, tree (never rejects a case), or auto, which picks one")
            ->type_name("WORD")
            ->check(CLI::IsMember({"auto", "forward", "tree"}));
        app.add_option("--max-tries", max_tries_, "Draws for one case at most, with forward")
            ->type_name("N")
            ->check(CLI::Range(1, INT_MAX));
        app.add_flag("--exhaustive", exhaustive_, "Every possible case with its exact frequency instead");
        app.add_option("--node", node_names_, "Only this node; may be repeated")
            ->allow_extra_args(false)
            ->type_name("NODE");
        compile_.Define(app);
        findings_.Define(app);
    }

    void Run(Session& session) override
    {
        if (exhaustive_ == (num_cases_ >= 0)) throw WrongUsage("either --cases or --exhaustive is required");
        if (exhaustive_ && percent_missing_ > 0)
            throw WrongUsage("--missing is for random cases, not for --exhaustive");
        if (out_ == "-" && session.options.json)
            throw WrongUsage("the cases and the JSON document cannot both go to standard output");
        net_bn* net = ReadNetForQuery(session, path_);
        if (!session.options.seed.empty()) {
            SetNetRandomGen_bn(net,
                               NewRandomGenerator_vx(session.options.seed.c_str(), session.env, nullptr));
            session.Check();
        }
        findings_.Enter(session, net);
        if (compile_.optimize_seconds > 0) compile_.Compile(session, net);
        const double written = Write(session, net);
        session.Field("cases") = static_cast<int64_t>(written);
        Show(session, written);
    }

private:
    nodelist_bn* ListNodes(Session& session, net_bn* net) const
    {
        std::vector<node_bn*> nodes;
        for (const std::string& name : node_names_) nodes.push_back(FindNode(net, name));
        if (node_names_.empty())
            for (node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr)))
                if (GetNodeKind_bn(node) == NATURE_NODE || GetNodeKind_bn(node) == DECISION_NODE)
                    nodes.push_back(node);
        nodelist_bn* list = NewNodeList2_bn(static_cast<int>(nodes.size()), net);
        for (size_t i = 0; i < nodes.size(); ++i) SetNthNode_bn(list, static_cast<int>(i), nodes[i]);
        session.Check();
        return list;
    }

    double Write(Session& session, net_bn* net) const
    {
        const nodelist_bn* nodes = ListNodes(session, net);
        stream_vx* file = out_ == "-" ? NewMemoryStream_vx("simulated.cas", session.env, nullptr)
                                      : NewFileStream_vx(out_.c_str(), session.env, nullptr);
        const auto* chosen = std::find_if(std::begin(kMethods), std::end(kMethods),
                                          [this](const auto& row) { return method_ == row.word; });
        const double written = exhaustive_
                                   ? WriteEveryCase_bn(nodes, file)
                                   : WriteRandomCases_bn(nodes, file, static_cast<double>(num_cases_),
                                                         chosen->method, max_tries_, percent_missing_);
        session.Check();
        if (out_ == "-") {
            int64_t length = 0;
            const char* bytes = GetStreamContents_vx(file, &length);
            session.PrintRaw({bytes, static_cast<size_t>(length)});
        }
        return written;
    }

    void Show(Session& session, double written) const
    {
        if (out_ == "-") return;
        if (exhaustive_ || written > INT_MAX) {
            session.Print("Generated " + Number(written) + " cases, and put them in file '" +
                          Printable(out_) + "'.\n");
            return;
        }
        char text[100];
        snprintf(text, sizeof text, "Generated %d random cases, and put them in file '",
                 static_cast<int>(written));
        session.Print(text + Printable(out_) + "'.\n");
    }

    std::string path_, out_, method_ = "auto";
    std::vector<std::string> node_names_;
    int64_t num_cases_ = -1;
    double percent_missing_ = 0;
    int max_tries_ = 1000000;
    bool exhaustive_ = false;
    CompileOptions compile_;
    FindingOptions findings_;
};

}  // namespace

std::unique_ptr<Command> MakeSimulate()
{
    return std::make_unique<Simulate>();
}

}  // namespace command
