// What the parser knows of each command, for help, manual pages and completion.
#include "talora/Manual.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "talora/Session.h"

namespace command {

namespace {

// "WORD:{counting,em}" as the parser describes it: the words that are allowed.
std::vector<std::string> WordsOf(const std::string& type)
{
    std::vector<std::string> words;
    const size_t open = type.find(":{"), close = type.rfind('}');
    if (open == std::string::npos || close == std::string::npos) return words;
    for (size_t at = open + 2; at < close;) {
        const size_t end = std::min(type.find(',', at), close);
        words.push_back(type.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

OptionText DescribeOption(const CLI::Option& option)
{
    OptionText text;
    text.is_argument = !option.nonpositional();
    for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
    if (text.is_argument) text.names.push_back(option.get_name());
    const bool is_flag = option.get_items_expected_max() == 0;
    const std::string type = option.get_type_name();
    if (!is_flag) text.value = text.is_argument ? text.names[0] : type.substr(0, type.find(':'));
    text.words = WordsOf(type);
    text.help = option.get_description();
    text.group = option.get_group();
    text.is_required = option.get_required();
    text.is_repeatable = option.get_items_expected_max() > 1;
    text.takes_several = text.is_repeatable && option.get_allow_extra_args();
    return text;
}

CommandText DescribeCommand(const CLI::App& app)
{
    CommandText text;
    text.name = app.get_parent() ? app.get_name() : "";
    text.summary = app.get_description();
    text.examples = app.get_footer();
    for (const CLI::Option* option : app.get_options())
        if (!option->get_group().empty()) text.options.push_back(DescribeOption(*option));
    return text;
}

void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) throw CommandFailed("could not write file '" + path.string() + "'");
}

}  // namespace

std::vector<CommandText> DescribeCommands(const CLI::App& app)
{
    std::vector<CommandText> commands = {DescribeCommand(app)};
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        commands.push_back(DescribeCommand(*sub));
    return commands;
}

void WriteManual(const std::vector<CommandText>& commands, const std::string& version,
                 const std::string& folder)
{
    namespace fs = std::filesystem;
    try {
        const fs::path share = fs::path(folder) / "share";
        for (const CommandText& command : commands) {
            const std::string name = command.name.empty() ? "talora" : "talora-" + command.name;
            WriteFile(share / "man/man1" / (name + ".1"), ManualPage(commands, command, version));
        }
        WriteFile(share / "bash-completion/completions/talora", BashCompletion(commands));
        WriteFile(share / "zsh/vendor-completions/_talora", ZshCompletion(commands));
        WriteFile(share / "fish/vendor_completions.d/talora.fish", FishCompletion(commands));
        WriteFile(fs::path(folder) / "commands.md", CommandReference(commands));
    } catch (const fs::filesystem_error& error) {
        throw CommandFailed(error.what());
    }
}

}  // namespace command
