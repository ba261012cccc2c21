// Options that state findings, entered into a net.
#include "talora/Findings.h"

#include <charconv>
#include <cmath>
#include <memory>

#include "talora/NetFile.h"
#include "talora/Text.h"

namespace command {

namespace {

struct Assignment {
    std::string node, value;
};

// Splits NODE=VALUE as given to an option.
// At the first equals sign: names have none, values may.
Assignment Split(const char* option, const std::string& text, const char* form)
{
    const size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == text.size())
        throw WrongUsage(std::string(option) + " takes " + form + ", but was given '" + text + "'");
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// Finite numbers, whatever the locale.
template <typename Real>
Real ParseReal(const char* option, std::string_view text)
{
    Real value = 0;
    if (text.starts_with('+')) text.remove_prefix(1);
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || !std::isfinite(value))
        throw WrongUsage(std::string(option) + ": '" + std::string(text) + "' is not a number");
    return value;
}

std::vector<prob_bn> ParseVector(const char* option, const std::string& text)
{
    std::vector<prob_bn> numbers;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        numbers.push_back(ParseReal<prob_bn>(option, std::string_view(text).substr(at, comma - at)));
        at = comma + 1;
    }
    return numbers;
}

void EnterState(net_bn* net, const std::string& text)
{
    const Assignment a = Split("-f", text, "NODE=STATE");
    node_bn* node = FindNode(net, a.node);
    EnterFinding_bn(node, FindState(node, a.value));
}

void EnterRuledOut(net_bn* net, const std::string& text)
{
    const Assignment a = Split("--not", text, "NODE=STATE");
    node_bn* node = FindNode(net, a.node);
    EnterFindingNot_bn(node, FindState(node, a.value));
}

void EnterLikelihood(net_bn* net, const std::string& text)
{
    const Assignment a = Split("--likelihood", text, "NODE=NUMBER,NUMBER,...");
    const std::vector<prob_bn> likelihood = ParseVector("--likelihood", a.value);
    node_bn* node = FindNode(net, a.node);
    const int num_states = GetNodeNumberStates_bn(node);
    if (static_cast<int>(likelihood.size()) != num_states)
        throw CommandFailed("node '" + a.node + "' has " + std::to_string(num_states) + " states, but " +
                            std::to_string(likelihood.size()) + " numbers were given for its likelihood");
    EnterNodeLikelihood_bn(node, likelihood.data());
}

void EnterValue(net_bn* net, const std::string& text)
{
    const Assignment a = Split("--value", text, "NODE=NUMBER");
    const double value = ParseReal<double>("--value", a.value);
    EnterNodeValue_bn(FindNode(net, a.node), value);
}

// One case of a file, on top of the findings there are; nodes that the file has no column for keep theirs.
void EnterCase(Session& session, net_bn* net, const std::string& path, int number)
{
    if (number < 1) throw WrongUsage("--case takes a number from 1 on");
    const std::unique_ptr<stream_vx, decltype(&DeleteStream_vx)> file(
        NewFileStream_vx(path.c_str(), session.env, nullptr), &DeleteStream_vx);
    session.Check();
    double position = FindCasePosition_cs(file.get(), number);
    session.Check();
    if (position == NO_CASE_POSN)
        throw CommandFailed("file '" + path + "' has no case " + std::to_string(number));
    ReadNetFindings2_bn(&position, file.get(), DONT_ADD_NEW, GetNetNodes2_bn(net, nullptr), nullptr, nullptr);
    session.Check();
}

CLI::Option* AddRepeatable(CLI::App& app, const char* name, std::vector<std::string>& values,
                           const char* help)
{
    // One value for each mention: otherwise the option would swallow the file names behind it.
    return app.add_option(name, values, help)->allow_extra_args(false)->group("Findings");
}

}  // namespace

void FindingOptions::Define(CLI::App& app)
{
    AddRepeatable(app, "-f,--finding", states, "The node is in this state: name, or #index from 0")
        ->type_name("NODE=STATE");
    AddRepeatable(app, "--not", ruled_out, "The node is not in this state")->type_name("NODE=STATE");
    AddRepeatable(app, "--likelihood", likelihoods,
                  "How probable the observation is in each state; only the ratios matter")
        ->type_name("NODE=v1,v2,...");
    AddRepeatable(app, "--value", values, "The node has this value")->type_name("NODE=REAL");
    app.add_option("--findings", case_file, "The first case of a case file")
        ->type_name("FILE")
        ->group("Findings");
    app.add_option("--case", case_number, "Another case of that file, counted from 1")
        ->type_name("N")
        ->group("Findings");
    app.add_flag("--no-saved-findings", drop_saved, "Forget the findings saved in the net file")
        ->group("Findings");
}

void FindingOptions::Enter(Session& session, net_bn* net) const
{
    static constexpr struct {
        std::vector<std::string> FindingOptions::*texts;
        void (*enter)(net_bn* net, const std::string& text);
    } kKinds[] = {
        {&FindingOptions::states, EnterState},
        {&FindingOptions::ruled_out, EnterRuledOut},
        {&FindingOptions::likelihoods, EnterLikelihood},
        {&FindingOptions::values, EnterValue},
    };
    // 1. Findings of the net's file go if that is asked for. 2. A case. 3. The options, kind by kind in a
    // fixed order.
    if (drop_saved) RetractNetFindings_bn(net);
    session.Check();
    if (!case_file.empty()) EnterCase(session, net, case_file, case_number);
    for (const auto& kind : kKinds) {
        for (const std::string& text : this->*kind.texts) {
            kind.enter(net, text);
            session.Check();
        }
    }
}

void CompileOptions::Define(CLI::App& app)
{
    app.add_option("--optimize", optimize_seconds,
                   "Search this long for an elimination order that makes queries cheaper")
        ->type_name("SECONDS");
}

void CompileOptions::Compile(Session& session, net_bn* net) const
{
    constexpr double kLongest = 1e9;
    if (!(optimize_seconds >= 0 && optimize_seconds <= kLongest))
        throw WrongUsage("--optimize takes a number of seconds, 0 or more");
    if (optimize_seconds > 0) OptimizeNetElimOrder_bn(net, optimize_seconds, nullptr);
    session.Check();
    if (!IsNetCompiled_bn(net)) CompileNet_bn(net);
    session.Check();
}

// One line for headings; constants have a state that is no finding.
std::string DescribeFindings(const net_bn* net)
{
    std::string text;
    for (const node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr))) {
        if (GetNodeKind_bn(node) == CONSTANT_NODE || !HasNodeFinding_bn(node)) continue;
        const state_bn state = GetNodeFinding_bn(node);
        const double value = GetNodeValueEntered_bn(node);
        text += std::string(text.empty() ? "" : ", ") + GetNodeName_bn(node);
        if (value != GetUndefDbl_vx())
            text += " = " + Number(value);
        else if (state >= 0)
            text += " = " + StateName(node, state);
        else
            text += " (likelihood)";
    }
    return text;
}

}  // namespace command
