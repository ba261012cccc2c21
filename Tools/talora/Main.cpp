// talora: queries and converts belief networks from the command line.
//
// Subcommands are the rows of kCommands.  Exit status 0 done, 1 failed, 2 wrong usage.
#include <cstdio>
#include <cstring>
#include <new>
#include <sstream>

#include "talora/Command.h"
#include "talora/Manual.h"

namespace command {

namespace {

struct CommandDef {
    const char* name;
    const char* summary;
    std::unique_ptr<Command> (*make)();
    const char* examples;
    const char* json = "";  // its fields with --json
};

constexpr CommandDef kCommands[] = {
    {"info", "Shows what is in a net: nodes, states, parents, tables", MakeInfo,
     "  talora info Examples/chest-clinic.dne\n"
     "  talora info --json - < net.dne",
     "net, format, title, comment, nodes (a list: name, title, kind, type, num_states, states, levels, "
     "parents, table_entries, has_table, has_equation)."},
    {"compile", "Shows the junction tree that queries run on", MakeCompile,
     "  talora compile net.dne --report\n"
     "  talora compile net.dne --optimize 10     after a search of 10 seconds\n"
     "  talora compile net.dne -f XRay=Abnormal  how much a finding saves",
     "elimination_order, cost, cliques (a list: index, members, joined_to, size, home_of), "
     "sum_clique_sizes, sum_with_separators, sum_under_findings; report with --report."},
    {"beliefs", "Shows how probable each state is, given findings", MakeBeliefs,
     "  talora beliefs Examples/chest-clinic.dne\n"
     "  talora beliefs Examples/chest-clinic.dne -f Dyspnoea=Yes --not Smoker=Yes\n"
     "  talora beliefs net.dne --likelihood XRay=0.8,0.2 --node LungCancer --json",
     "probability_of_findings, log_probability_of_findings, beliefs (by node, by state), "
     "expected_values (by node: mean, sd)."},
    {"mpe", "Shows the most probable configuration of all nodes, given findings", MakeMpe,
     "  talora mpe Examples/chest-clinic.dne -f Dyspnoea=Yes\n"
     "  talora mpe Examples/chest-clinic.dne -f Dyspnoea=Yes --nth 1     the next best\n"
     "  talora mpe net.dne --node LungCancer --node Bronchitis           of these two only",
     "configuration (by node: state), nth, probability, log_probability."},
    {"sensitivity", "Shows which further findings would be most informative about a node", MakeSensitivity,
     "  talora sensitivity Examples/chest-clinic.dne --query LungCancer\n"
     "  talora sensitivity Examples/chest-clinic.dne --query LungCancer --vary XRay -f Smoker=Yes --report",
     "query, entropy, belief_variance, rows (a list: node, mutual_info, variance_of_beliefs, "
     "variance_of_real); report with --report."},
    {"table", "Prints the table of a node", MakeTable, "  talora table Examples/chest-clinic.dne Dyspnoea",
     "node, parents, states, equation, rows (a list: parent_states; probs, state or value; experience)."},
    {"equation", "Builds tables from the equations of nodes", MakeEquation,
     "  talora equation net.dne Dose -o net.dne\n"
     "  talora equation net.dne --all --samples 10000 --seed 1 -o out.dne\n"
     "  talora equation net.dne Dose --set 'P (Dose | Weight) = NormalDist (Dose, 2 * Weight, 5)' -o -",
     "nodes (the names of those that got a table)."},
    {"calc", "Computes a formula in the language of equations", MakeCalc,
     "  talora calc 'NormalDist (x, 0, 1)' x=1.5\n"
     "  talora calc 'sin (30 deg) ^ 2'\n"
     "  talora calc --functions                what there is to call",
     "value; functions with --functions."},
    {"learn", "Learns the tables of a net from cases", MakeLearn,
     "  talora learn net.dne --cases patients.cas -o learned.dne\n"
     "  talora learn net.dne --cases a.cas b.cas --method em --prior 1 -o learned.dne\n"
     "  talora learn net.dne --cases patients.cas --method em --seed 1 -o - --quiet",
     "iterations (a list: iteration, minus_log_likelihood, change), cases."},
    {"simulate", "Draws random cases from a net, given findings", MakeSimulate,
     "  talora simulate net.dne --cases 10000 -o sample.cas --seed 1\n"
     "  talora simulate net.dne --cases 500 -o sick.cas -f Disease=Present --missing 20\n"
     "  talora simulate net.dne --exhaustive -o all.cas",
     "cases."},
    {"test", "Tests how well a net predicts some of its nodes, with cases", MakeTest,
     "  talora test net.dne --cases patients.cas --node Disease\n"
     "  talora test net.dne --cases a.cas b.cas --node Disease --unobserved XRay --json",
     "nodes (by node: error_rate, log_loss, quadratic_loss, spherical_payoff, confusion, cases, "
     "auroc, states, real, cases_read, impossible_cases)."},
    {"score", "Finds the beliefs for every case of a file", MakeScore,
     "  talora score net.dne --cases patients.cas --node Disease -o scored.cas\n"
     "  talora score net.dne --cases patients.cas --jsonl -o -        all beliefs, a JSON object per case",
     "cases. With --jsonl the answer is a line for each case: case, id, weight, log_probability, "
     "beliefs."},
    {"convert", "Writes a net to another file; the extension says in which format", MakeConvert,
     "  talora convert old.dne new.dne\n"
     "  talora convert net.dne net.tala          compressed\n"
     "  talora convert net.dne net.tala --password-file secret.txt\n"
     "  talora convert net.dne clinic.bif        and says what was lost\n"
     "  talora convert clinic.bif - --to xmlbif --strict\n"
     "  talora convert net.dne - | diff net.dne -",
     "losses (a list: severity, what, nodes, instead)."},
    {"formats", "Lists the formats of net files", MakeFormats, "  talora formats\n  talora formats --json",
     "formats (a list: name, extensions, about, read, written)."},
};

constexpr const char* kExamples =
    "A net says how things depend on one another; findings say what has been observed.\n"
    "\n"
    "Examples:\n"
    "  talora info Examples/chest-clinic.dne                     what is in the net\n"
    "  talora beliefs Examples/chest-clinic.dne                  before anything is known\n"
    "  talora beliefs Examples/chest-clinic.dne -f Dyspnoea=Yes  after a finding\n"
    "  talora beliefs Examples/chest-clinic.dne --json           for programs\n"
    "\n"
    "See talora COMMAND --help for details.  '-' as a file name is standard input or output.\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage.";

constexpr size_t kHelpColumn = 36;

bool Mentions(int argc, char** argv, const char* word)
{
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], word) == 0) return true;
    return false;
}

void DefineCommonOptions(CLI::App& app, CommonOptions& options)
{
    app.add_flag("--json", options.json, "Print one JSON document, and nothing else, on standard output");
    app.add_flag("--quiet", options.quiet, "No progress, no warnings: only answers and errors");
    app.add_option("--password-file", options.password_file, "Password of encrypted files: its first line")
        ->type_name("FILE");
    app.add_option("--seed", options.seed, "Start of the random numbers, where any are drawn")
        ->type_name("TEXT");
}

// The library takes text that begins with the mark of UTF-16 as UTF-16, whose end an argument
// from the command line need not have.
void RefuseWideText(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        if (strstr(argv[i], "\xFF\xFE")) throw WrongUsage("argument " + std::to_string(i) + " is not text");
}

std::string CommandNames()
{
    std::string names;
    for (const CommandDef& def : kCommands) names += std::string(names.empty() ? "" : ", ") + def.name;
    return names;
}

// The parser would only say that an argument was not expected.
void RefuseUnknownCommand(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--password-file") == 0 || strcmp(argv[i], "--seed") == 0) ++i;
        if (i >= argc || argv[i][0] == '-') continue;
        for (const CommandDef& def : kCommands)
            if (strcmp(argv[i], def.name) == 0) return;
        throw WrongUsage("there is no command '" + std::string(argv[i]) + "' (the commands are " +
                         CommandNames() + ")");
    }
}

std::string VersionText(environ_vx* env)
{
    const char* version = "";
    GetTaloraVersion_bn(env, &version);
    return version;
}

// What the build and the completion scripts of shells ask for; not listed in the help.
//   --manual FOLDER       writes manual pages, completion scripts and the reference of the commands
//   --names NET [NODE]    prints the names of the nodes of a net, or of the states of a node
bool AnswerScripts(Session& session, const CLI::App& app, int argc, char** argv)
{
    if (argc == 3 && strcmp(argv[1], "--manual") == 0) {
        std::vector<CommandText> commands = DescribeCommands(app);
        for (CommandText& command : commands)
            for (const CommandDef& def : kCommands)
                if (command.name == def.name) command.json = def.json;
        WriteManual(commands, VersionText(session.env), argv[2]);
        return true;
    }
    if ((argc == 3 || argc == 4) && strcmp(argv[1], "--names") == 0) {
        PrintNames(session, argv[2], argc == 4 ? argv[3] : "");
        return true;
    }
    return false;
}

// Parses and runs.  Help and version are answered by the parser with an exception of status 0.
int RunArguments(Session& session, int argc, char** argv)
{
    // 1. The parser: options of all commands, then a subcommand for each row.
    CLI::App app("Talora answers questions from Bayesian belief networks.", "talora");
    app.set_version_flag("--version", VersionText(session.env));
    app.footer(kExamples);
    app.require_subcommand(1);
    app.get_formatter()->column_width(kHelpColumn);
    DefineCommonOptions(app, session.options);
    Command* chosen = nullptr;
    std::vector<std::unique_ptr<Command>> commands;
    for (const CommandDef& def : kCommands) {
        CLI::App* sub = app.add_subcommand(def.name, def.summary);
        sub->fallthrough();
        sub->footer(std::string("Examples:\n") + def.examples +
                    "\n\nBesides: --json, --quiet, --password-file FILE, --seed TEXT (talora --help).");
        commands.push_back(def.make());
        Command* command = commands.back().get();
        command->DefineOptions(*sub);
        sub->callback([&chosen, command] { chosen = command; });
    }
    // 2. Requests that need no command.
    if (argc < 2) {
        fputs(app.help().c_str(), stderr);
        throw WrongUsage("a command is required");
    }
    try {
        RefuseWideText(argc, argv);
        if (AnswerScripts(session, app, argc, argv)) return session.Finish(kDone, "");
        RefuseUnknownCommand(argc, argv);
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {
        std::ostringstream text;
        app.exit(request, text, text);
        session.options.json = false;
        session.PrintRaw(text.str());
        return session.Finish(kDone, "");
    } catch (const CLI::ParseError& error) {
        throw WrongUsage(std::string(error.what()) + " (see talora --help)");
    }
    // 3. The command itself.
    session.Begin();
    chosen->Run(session);
    return session.Finish(kDone, "");
}

// Every failure becomes a message and an exit status.
int RunSession(Session& session, int argc, char** argv)
{
    try {
        return RunArguments(session, argc, argv);
    } catch (const WrongUsage& error) {
        return session.Finish(kWrongUsage, error.what());
    } catch (const CommandFailed& error) {
        return session.Finish(kFailed, error.what());
    } catch (const std::bad_alloc&) {
        return session.Finish(kFailed, "out of memory");
    }
}

}  // namespace

}  // namespace command

int main(int argc, char** argv)
{
    try {
        command::Session session;
        session.options.json = command::Mentions(argc, argv, "--json");
        return command::RunSession(session, argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "talora: error: %s\n", error.what());
        return command::kFailed;
    }
}
