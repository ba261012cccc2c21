// What a subcommand is.  Each lives in a file of its own and has a row in the table of Main.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>

#include "talora/Session.h"

namespace command {

class Command {
public:
    virtual ~Command() = default;
    // Declares arguments and options, bound to members.
    virtual void DefineOptions(CLI::App& app) = 0;
    // Does the work; throws CommandFailed or WrongUsage.
    virtual void Run(Session& session) = 0;
};

std::unique_ptr<Command> MakeInfo();
std::unique_ptr<Command> MakeCompile();
std::unique_ptr<Command> MakeBeliefs();
std::unique_ptr<Command> MakeMpe();
std::unique_ptr<Command> MakeSensitivity();
std::unique_ptr<Command> MakeTable();
std::unique_ptr<Command> MakeConvert();
std::unique_ptr<Command> MakeFormats();
std::unique_ptr<Command> MakeEquation();
std::unique_ptr<Command> MakeCalc();
std::unique_ptr<Command> MakeSimulate();
std::unique_ptr<Command> MakeTest();
std::unique_ptr<Command> MakeScore();
std::unique_ptr<Command> MakeLearn();

}  // namespace command
