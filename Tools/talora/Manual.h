// What is derived from the tables of commands and options: manual pages, completion for shells, and the
// reference page of the manual.  Written when the program is built, so that none of them can be out of date.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "talora/Session.h"

namespace command {

// An option or argument as the help and the manual describe it.
struct OptionText {
    std::vector<std::string> names;  // "-f", "--finding"; of an argument its one name
    std::string value;               // what stands for the value, "" for a flag
    std::vector<std::string> words;  // the values there are, where they are few
    std::string help, group;
    bool is_argument = false, is_required = false, is_repeatable = false, takes_several = false;
};

struct CommandText {
    std::string name, summary, examples, json;
    std::vector<OptionText> options;
};

// The command as a whole comes first, with an empty name.
std::vector<CommandText> DescribeCommands(const CLI::App& app);

std::string ManualPage(const std::vector<CommandText>& commands, const CommandText& command,
                       const std::string& version);
std::string CommandReference(const std::vector<CommandText>& commands);

std::string BashCompletion(const std::vector<CommandText>& commands);
std::string ZshCompletion(const std::vector<CommandText>& commands);
std::string FishCompletion(const std::vector<CommandText>& commands);

// For completion: the nodes of a net, or the states of one of them, a name on each line.
void PrintNames(Session& session, const std::string& path, const std::string& node_name);

// All of them into a folder: share/..., ready to be installed, and commands.md.  Throws CommandFailed.
void WriteManual(const std::vector<CommandText>& commands, const std::string& version,
                 const std::string& folder);

}  // namespace command
