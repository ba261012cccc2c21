// talora convert: a net from one file to another.
#include "talora/Command.h"
#include "talora/NetFile.h"

namespace command {

namespace {

class Convert : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("IN", in_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("OUT", out_, "File to write; - writes text to standard output")
            ->required()
            ->type_name("");
    }

    void Run(Session& session) override
    {
        if (out_ == "-" && session.options.json)
            throw WrongUsage("the net and the JSON document cannot both go to standard output");
        net_bn* net = ReadNet(session, in_);
        WriteNet(session, net, out_);
    }

private:
    std::string in_, out_;
};

}  // namespace

std::unique_ptr<Command> MakeConvert()
{
    return std::make_unique<Convert>();
}

}  // namespace command
