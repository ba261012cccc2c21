// Manual pages (roff, man(7)) and the reference page (Markdown) of the commands.
#include "talora/Manual.h"
#include "talora/Text.h"

namespace command {

namespace {

constexpr const char* kFiles =
    "Nets are text files (.dne) or compressed and perhaps encrypted ones (.tala); cases are text files. "
    "Where a file is named, - stands for standard input or output.";
constexpr const char* kJson =
    "With --json the answer is one JSON document with the fields ok, messages (a list of objects with the "
    "fields number, severity, text, function, file and line) and the ones given below. A value that does not "
    "exist is null.";
constexpr const char* kStatus[][2] = {
    {"0", "Done; there may have been warnings."},
    {"1", "Failed. Each error is a line on standard error."},
    {"2", "Wrong usage: an option or argument that does not exist or does not fit."},
};

// Text in which nothing is taken as a request or an escape.
std::string Roff(std::string_view text)
{
    std::string roff;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool begins_line = i == 0 || text[i - 1] == '\n';
        if (begins_line && (text[i] == '.' || text[i] == '\'')) roff += "\\&";
        switch (text[i]) {
            case '\\':
                roff += "\\e";
                break;
            case '-':
                roff += "\\-";
                break;
            case '\'':
                roff += "\\(aq";
                break;
            case '^':
                roff += "\\(ha";
                break;
            case '~':
                roff += "\\(ti";
                break;
            case '`':
                roff += "\\(ga";
                break;
            default:
                roff += text[i];
        }
    }
    return roff;
}

std::string FullName(const CommandText& command)
{
    return command.name.empty() ? "talora" : "talora-" + command.name;
}

std::string RoffOption(const OptionText& option)
{
    std::string head;
    for (const std::string& name : option.names) head += (head.empty() ? "\\fB" : "\\fR, \\fB") + Roff(name);
    if (option.is_argument) head = "\\fI" + Roff(option.names[0]);
    if (!option.is_argument && !option.value.empty())
        head += " \\fI" + Roff(option.value) + (option.takes_several ? "\\fR ..." : "");
    std::string text = ".TP\n" + head + "\\fR\n" + Roff(option.help) + ".\n";
    if (!option.words.empty()) {
        text += "One of";
        for (const std::string& word : option.words)
            text += (&word == &option.words[0] ? " \\fB" : ", \\fB") + Roff(word) + "\\fR";
        text += ".\n";
    }
    if (option.is_repeatable && !option.is_argument && option.help.find("repeated") == std::string::npos)
        text += "May be given more than once.\n";
    if (option.is_required && !option.is_argument) text += "Required.\n";
    return text;
}

std::string Synopsis(const CommandText& command)
{
    if (command.name.empty()) return "\\fBtalora\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR] ...\n";
    std::string text = "\\fBtalora " + Roff(command.name) + "\\fR [\\fIOPTIONS\\fR]";
    for (const OptionText& option : command.options)
        if (option.is_required && !option.is_argument)
            text += " \\fB" + Roff(option.names.back()) + "\\fR \\fI" + Roff(option.value) + "\\fR";
    for (const OptionText& option : command.options) {
        if (!option.is_argument) continue;
        const std::string name =
            "\\fI" + Roff(option.names[0]) + "\\fR" + (option.is_repeatable ? "..." : "");
        text += option.is_required ? " " + name : " [" + name + "]";
    }
    return text + "\n";
}

// The options of each group under a heading of its own.
std::string RoffOptions(const CommandText& command)
{
    std::string arguments, options, findings;
    for (const OptionText& option : command.options)
        (option.is_argument           ? arguments
         : option.group == "Findings" ? findings
                                      : options) += RoffOption(option);
    std::string text;
    if (!arguments.empty()) text += ".SH ARGUMENTS\n" + arguments;
    if (!options.empty()) text += ".SH OPTIONS\n" + options;
    if (!findings.empty()) text += ".SH FINDINGS\n" + findings;
    return text;
}

std::string RoffCommands(const std::vector<CommandText>& commands)
{
    std::string text = ".SH COMMANDS\n";
    for (const CommandText& command : commands)
        if (!command.name.empty())
            text += ".TP\n\\fBtalora\\-" + Roff(command.name) + "\\fR(1)\n" + Roff(command.summary) + ".\n";
    return text;
}

std::string RoffSeeAlso(const std::vector<CommandText>& commands, const CommandText& command)
{
    std::string text;
    for (const CommandText& other : commands)
        if (other.name != command.name)
            text += (text.empty() ? "" : ",\n") + ("\\fB" + Roff(FullName(other)) + "\\fR(1)");
    return ".SH SEE ALSO\n" + text + "\n";
}

// Names of options as they are mentioned, all of one.
std::string MarkdownOption(const OptionText& option)
{
    std::string head;
    for (const std::string& name : option.names) head += (head.empty() ? "`" : "`, `") + name;
    if (!option.is_argument && !option.value.empty())
        head += " " + option.value + (option.takes_several ? " ..." : "");
    std::string help = option.help;
    for (const std::string& word : option.words)
        help += (&word == &option.words[0] ? ". One of `" : ", `") + word + "`";
    if (option.is_required && !option.is_argument) help += ". Required";
    if (option.is_repeatable && help.find("repeated") == std::string::npos) help += ". May be repeated";
    for (size_t at = 0; (at = help.find('|', at)) != std::string::npos; at += 2) help.insert(at, "\\");
    return "| " + head + "` | " + help + " |\n";
}

// The word where it stands first, set as code.
std::string Code(std::string text, const std::string& word)
{
    return text.replace(text.find(word), word.size(), "`" + word + "`");
}

std::string MarkdownOptions(const CommandText& command)
{
    std::string text = "| Option | Meaning |\n|---|---|\n";
    bool has_findings = false;
    for (const OptionText& option : command.options) {
        if (option.group == "Findings")
            has_findings = true;
        else if (option.names.back() != "--help")
            text += MarkdownOption(option);
    }
    if (has_findings) text += "| and | the [options for findings](#findings) |\n";
    return text;
}

std::string Examples(const CommandText& command)
{
    const size_t begin = command.examples.find("Examples:\n");
    if (begin == std::string::npos) return "";
    const size_t from = begin + sizeof "Examples:\n" - 1;
    return command.examples.substr(from, command.examples.find("\n\n", from) - from) + "\n";
}

}  // namespace

std::string ManualPage(const std::vector<CommandText>& commands, const CommandText& command,
                       const std::string& version)
{
    const bool is_whole = command.name.empty();
    std::string summary = is_whole ? "queries, learns and tests Bayesian belief networks" : command.summary;
    if (summary[0] >= 'A' && summary[0] <= 'Z') summary[0] += 'a' - 'A';
    std::string text = ".TH " + Roff(FullName(command)) + " 1 \"\" \"Talora " + Roff(version) +
                       "\" \"Talora\"\n" + ".SH NAME\n" + Roff(FullName(command)) + " \\- " + Roff(summary) +
                       "\n" + ".SH SYNOPSIS\n" + Synopsis(command) + ".SH DESCRIPTION\n";
    text += is_whole
                ? "A net says how things depend on one another; findings say what has been observed; Talora "
                  "says how probable everything else is then.\n.PP\n"
                : Roff(command.summary) + ".\n.PP\n";
    text += Roff(kFiles) + "\n";
    if (is_whole) text += RoffCommands(commands);
    text += RoffOptions(command);
    if (!is_whole) {
        text += ".SH COMMON OPTIONS\n";
        for (const OptionText& option : commands[0].options)
            if (option.names.back() != "--help" && option.names.back() != "--version")
                text += RoffOption(option);
    }
    text += ".SH JSON\n" + Roff(kJson) + "\n";
    if (!command.json.empty()) text += ".PP\n" + Roff(command.json) + "\n";
    text += ".SH EXIT STATUS\n";
    for (const auto& [status, meaning] : kStatus)
        text += ".TP\n\\fB" + std::string(status) + "\\fR\n" + Roff(meaning) + "\n";
    text += ".SH EXAMPLES\n.nf\n" + Roff(Examples(command)) + ".fi\n";
    return text + RoffSeeAlso(commands, command);
}

std::string CommandReference(const std::vector<CommandText>& commands)
{
    std::string text =
        "<!-- Written by: talora --manual FOLDER, refreshed by Scripts/make-reference.py -->\n"
        "# Commands\n\n`talora COMMAND [OPTIONS] ...`\n\n" +
        std::string(kFiles) + "\n\n## Options of every command\n\n" + MarkdownOptions(commands[0]) + "\n" +
        Code(kJson, "--json") + "\n\nExit status:\n\n| Status | Meaning |\n|---|---|\n";
    for (const auto& [status, meaning] : kStatus)
        text += "| " + std::string(status) + " | " + meaning + " |\n";
    text +=
        "\n## Findings\n\nWherever a net is asked, findings are entered with these. Findings saved in the net "
        "file stand besides.\n\n| Option | Meaning |\n|---|---|\n";
    for (const CommandText& command : commands) {
        if (command.name != "beliefs") continue;
        for (const OptionText& option : command.options)
            if (option.group == "Findings") text += MarkdownOption(option);
    }
    for (const CommandText& command : commands) {
        if (command.name.empty()) continue;
        text += "\n## talora " + command.name + "\n\n" + command.summary + ".\n\n" + MarkdownOptions(command);
        if (!command.json.empty()) text += "\nJSON: " + command.json + "\n";
        text += "\n```text\n" + Examples(command) + "```\n";
    }
    return text;
}

}  // namespace command
