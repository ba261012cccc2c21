// talora convert: a net from one file to another, with an account of what was lost; talora formats: the list.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Text.h"
#include "talora/Values.h"

namespace command {

namespace {

// What was lost, gravest first, as a field of the document and in words.
// With the net on standard output they go to standard error.
void ReportLosses(Session& session, std::vector<Loss> losses, bool to_error)
{
    std::stable_sort(losses.begin(), losses.end(),
                     [](const Loss& a, const Loss& b) { return a.severity > b.severity; });
    Json& list = session.Field("losses") = Json::array();
    std::string text;
    for (const Loss& loss : losses) {
        const char* const severity = loss.severity == ANSWERS_LOSS       ? "changes answers"
                                     : loss.severity == INFORMATION_LOSS ? "loses information"
                                                                         : "only looks";
        list.push_back(
            {{"severity", severity}, {"what", loss.what}, {"nodes", loss.nodes}, {"instead", loss.instead}});
        text += std::string(severity) + ": " + loss.what + " - " + loss.instead;
        for (size_t i = 0; i < loss.nodes.size(); ++i) text += (i ? ", " : " (") + loss.nodes[i];
        text += loss.nodes.empty() ? "\n" : ")\n";
    }
    if (session.options.quiet) return;
    if (to_error)
        fputs(text.c_str(), stderr);
    else
        session.Print(text);
}

class Convert : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("IN", in_, "Net file of any format, or - for standard input")
            ->required()
            ->type_name("");
        app.add_option("OUT", out_,
                       "File to write, in the format of its extension; - writes to standard output")
            ->required()
            ->type_name("");
        app.add_option("--to", format_, "Format to write, whatever the extension; see talora formats")
            ->type_name("FORMAT");
        app.add_flag("--strict", strict_, "Fail, with nothing written, where answers would change");
    }

    void Run(Session& session) override
    {
        if (out_ == "-" && session.options.json)
            throw WrongUsage("the net and the JSON document cannot both go to standard output");
        std::vector<Loss> losses;
        net_bn* net = ReadNet(session, in_, nullptr, &losses);
        if (strict_)
            for (const Loss& loss : losses)
                if (loss.severity == ANSWERS_LOSS)
                    throw CommandFailed("the net was not written, because answers would change: " +
                                        loss.what + " of '" + in_ + "' cannot be read");
        WriteNet(session, net, out_, format_, strict_, &losses);
        ReportLosses(session, std::move(losses), out_ == "-");
    }

private:
    std::string in_, out_, format_;
    bool strict_ = false;
};

class Formats : public Command {
public:
    void DefineOptions(CLI::App&) override {}

    void Run(Session& session) override
    {
        Json& formats = session.Field("formats") = Json::array();
        Columns columns;
        columns.AddRow({"format", "extensions", "read", "written", "what it is"});
        const char *name = nullptr, *extensions = nullptr, *about = nullptr;
        bool_vx reads = 0, writes = 0;
        for (int i = 0; GetNthFileFormat_vx(i, &name, &extensions, &about, &reads, &writes); ++i) {
            formats.push_back({{"name", name},
                               {"extensions", extensions},
                               {"about", about},
                               {"read", reads != 0},
                               {"written", writes != 0}});
            columns.AddRow({name, extensions, reads ? "yes" : "no", writes ? "yes" : "no", about});
        }
        session.Print(columns.Text());
    }
};

}  // namespace

std::unique_ptr<Command> MakeConvert()
{
    return std::make_unique<Convert>();
}

std::unique_ptr<Command> MakeFormats()
{
    return std::make_unique<Formats>();
}

}  // namespace command
