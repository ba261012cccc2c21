// The findings options of the command from bytes: each line is an argument.  They are parsed and entered into
// a small net by the code of the command itself, and end as a run of it does: done, failed with a reason, or
// wrong usage with a reason, which can be shown at a terminal.  What was entered stands in the net.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "Fuzz/Harness.h"
#include "talora/Findings.h"
#include "talora/NetFile.h"
#include "talora/Text.h"

namespace {

// What a halt stopped says nothing.
void Check(bool condition, const char* promise)
{
    fuzz::Check(condition || fuzz::Input::WasHalted(), promise);
}

constexpr size_t kMostArguments = 40;

constexpr std::string_view kNet =
    "// ~->[DNET-1]->~\nbnet Query {\n"
    "node A { kind = NATURE; discrete = TRUE; states = (no, yes); parents = (); probs = (0.25, 0.75); };\n"
    "node B { kind = NATURE; discrete = TRUE; states = (low, middle, high); parents = (A);\n"
    "  probs = ((0.5, 0.25, 0.25), (0, 0.5, 0.5)); };\n"
    "node C { kind = NATURE; discrete = FALSE; levels = (0, 1, 2.5, 10); parents = (B);\n"
    "  probs = ((1, 0, 0), (0.2, 0.3, 0.5), (0, 0, 1)); };\n"
    "node D { kind = NATURE; chance = DETERMIN; discrete = TRUE; numstates = 2; parents = (A);\n"
    "  functable = (#1, #0); };\n"
    "node E { kind = NATURE; discrete = TRUE; states = (x, y); parents = (D); probs = ((0.5, 0.5), (1, 0));\n"
    "  evidence = x; };\n"
    "node K { kind = CONSTANT; discrete = TRUE; states = (off, on); evidence = on; };\n"
    "node W { kind = DECISION; discrete = TRUE; states = (stay, go); parents = (B); };\n"
    "node U { kind = UTILITY; discrete = FALSE; parents = (W, A); functable = (1, 2, 3, -4); };\n"
    "node R { kind = NATURE; discrete = FALSE; };\n};\n";

constexpr std::string_view kCases =
    "IDnum\tA\tB\tC\tK\tOther\tNumCases\n1\tno\tlow\t0.5\t*\t1\t1\n2\tyes\tlow\t99\toff\t*\t2\n3\t{0.5 0.5}\t~high\t"
    "[0,1]\ton\t2\t1\n";

// A file that is nowhere but in this process.
const std::string& CaseFilePath()
{
    static const std::string path = [] {
        const int file = memfd_create("cases", 0);
        Check(file >= 0 && write(file, kCases.data(), kCases.size()) == ssize_t(kCases.size()),
              "a file in memory");
        return "/proc/self/fd/" + std::to_string(file);
    }();
    return path;
}

// What the command works with, in the environment of the harness.
command::Session& TheSession()
{
    static command::Session* const session = [] {
        auto* const made = new command::Session;
        CloseTalora_bn(made->env, nullptr);
        made->env = fuzz::Environ();
        return made;
    }();
    return *session;
}

std::vector<std::string> Arguments(std::string_view bytes)
{
    std::vector<std::string> arguments;
    while (!bytes.empty() && arguments.size() < kMostArguments) {
        const size_t end = std::min(bytes.find('\n'), bytes.size());
        const std::string_view line = bytes.substr(0, end);
        arguments.emplace_back(line.substr(0, line.find('\0')));
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
    }
    return arguments;
}

// Throws as the main function of the command expects it.
void Parse(command::FindingOptions& options, const std::vector<std::string>& arguments)
{
    CLI::App app("Answers.", "talora");
    options.Define(app);
    std::vector<const char*> argv = {"talora"};
    for (const std::string& argument : arguments) {
        if (argument.find("\xFF\xFE") != std::string::npos) throw command::WrongUsage("not text");
        argv.push_back(argument.c_str());
    }
    try {
        app.parse(int(argv.size()), argv.data());
    } catch (const CLI::Success&) {
        throw;
    } catch (const CLI::ParseError& error) {
        throw command::WrongUsage(error.what());
    }
    if (!options.case_file.empty()) {  // no other file of this machine
        const std::string paths[] = {CaseFilePath(), "/proc/self/fd", "/proc/self/fd/none"};
        options.case_file = paths[options.case_file.size() % std::size(paths)];
    }
}

void CheckEntered(const command::FindingOptions& options, const net_bn* net)
{
    const auto node_of = [&](const std::string& text) {
        return command::FindNode(net, text.substr(0, text.find('=')));
    };
    for (const std::string& text : options.states) {
        node_bn* const node = node_of(text);
        const int state = command::FindState(node, text.substr(text.find('=') + 1));
        Check(GetNodeFinding_bn(node) == state, "the state given is the finding");
    }
    for (const std::string& text : options.ruled_out) {
        node_bn* const node = node_of(text);
        const int state = command::FindState(node, text.substr(text.find('=') + 1));
        if (GetNodeKind_bn(node) != CONSTANT_NODE)
            Check(GetNodeLikelihood_bn(node)[state] == 0, "a state ruled out has no likelihood");
    }
    for (const std::string& text : options.likelihoods)
        Check(HasNodeFinding_bn(node_of(text)), "a likelihood is a finding");
    Check(command::Printable(command::DescribeFindings(net)) == command::DescribeFindings(net),
          "findings can be shown");
}

// The answer, once the findings are in: a probability, or a contradiction.
void Query(net_bn* net)
{
    command::Session& session = TheSession();
    command::CompileOptions().Compile(session, net);
    const double log_prob = LogFindingsProbability_bn(net);
    session.Check();
    Check(!std::isnan(log_prob), "findings have a probability");
    for (node_bn* node : command::ToVector(GetNetNodes2_bn(net, nullptr))) {
        if (!command::HasBeliefs(node)) continue;
        const prob_bn* const beliefs = GetNodeBeliefs_bn(node);
        session.Check();
        if (beliefs == nullptr) return;  // halted
        double sum = 0;
        for (int s = 0; s < GetNodeNumberStates_bn(node); ++s) sum += double(beliefs[s]);
        Check(std::fabs(sum - 1) < 1e-5, "beliefs sum to 1");
    }
}

void CheckReason(const std::string& text)
{
    for (const char c : command::PrintableLines(text))
        Check(c == '\n' || (static_cast<unsigned char>(c) >= ' ' && c != 127), "a reason can be shown");
}

command::ExitStatus Run(const std::vector<std::string>& arguments, net_bn* net)
{
    command::FindingOptions options;
    try {
        Parse(options, arguments);
        options.Enter(TheSession(), net);
        CheckEntered(options, net);
        Query(net);
    } catch (const CLI::Success&) {
        return command::kDone;
    } catch (const command::WrongUsage& error) {
        Check(*error.what() != 0, "wrong usage has a reason");
        CheckReason(error.what());
        return command::kWrongUsage;
    } catch (const command::CommandFailed& error) {
        const report_vx* const record = GetError_vx(fuzz::Environ(), ERROR_SEVERITY, 0, nullptr);
        Check(*error.what() != 0 || record != nullptr, "a failure has a reason");
        CheckReason(*error.what() != 0 ? error.what() : ErrorMessage_vx(record));
        return command::kFailed;
    } catch (const std::bad_alloc&) {
        return command::kFailed;
    }
    return command::kDone;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    TheSession();
    const fuzz::Input input;
    net_bn* const net = fuzz::ReadNetOf(kNet, "query.dne");
    Check(net != nullptr && fuzz::TakenError() == 0, "the net can be read");
    if (net == nullptr) return 0;
    SetNetAutoUpdate_bn(net, 0);
    const command::ExitStatus status = Run(Arguments({reinterpret_cast<const char*>(data), size}), net);
    const int error = fuzz::TakenError();
    Check(status != command::kDone || error == 0, "what is done has no error");
    fuzz::WriteNetTo(net, "x.dne");  // at checking level 4
    Check(fuzz::TakenError() == 0, "the net is valid whatever was asked");
    DeleteNet_bn(net);
    return 0;
}
