// talora score: the beliefs for every case of a file.
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "talora/CaseFiles.h"
#include "talora/Command.h"
#include "talora/NetFile.h"
#include "talora/Text.h"

namespace command {

namespace {

// A file that is there while a long answer is made for standard output, so that memory does not hold it.
class ScratchFile {
public:
    ScratchFile()
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the command changes the environment
        const char* folder = getenv("TMPDIR");
        path_ = std::string(folder && *folder ? folder : "/tmp") + "/talora-XXXXXX";
        const int file = mkstemp(path_.data());
        if (file < 0) throw CommandFailed("could not make a file in '" + path_ + "': " + SystemReason());
        close(file);
    }
    ~ScratchFile() { unlink(path_.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& Path() const { return path_; }

    void Print(Session& session) const
    {
        const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path_.c_str(), "rb"), fclose);
        if (!file) throw CommandFailed("could not read '" + path_ + "': " + SystemReason());
        char chunk[1 << 16];
        for (size_t got; (got = fread(chunk, 1, sizeof chunk, file.get())) > 0;)
            session.PrintRaw({chunk, got});
    }

private:
    std::string path_;
};

class Score : public Command {
public:
    void DefineOptions(CLI::App& app) override
    {
        app.add_option("NET", path_, "Net file, or - for standard input")->required()->type_name("");
        app.add_option("--cases", case_files_, "Files of cases")->required()->type_name("FILE");
        app.add_option("--node", nodes_,
                       "Node whose beliefs are wanted, without its own value in the case; may be repeated. "
                       "Without it: all nodes, given all that the case says")
            ->type_name("NODE");
        app.add_flag("--whole", whole_, "Enter what a case says of the nodes named, too");
        app.add_option("-o,--output", output_, "File to write, - for standard output")
            ->required()
            ->type_name("FILE");
        app.add_flag("--jsonl", json_lines_, "Write a JSON object per case instead of columns");
    }

    void Run(Session& session) override
    {
        if (output_ == "-" && session.options.json)
            throw WrongUsage("the beliefs and the JSON document cannot both go to standard output");
        net_bn* net = ReadNetForQuery(session, path_);
        const nodelist_bn* nodes = ToList(net, ChooseNodes(net));
        const caseset_cs* cases = ReadCases(session, case_files_);
        session.Field("cases") = nullptr;
        double num_cases = 0;
        if (output_ == "-") {
            const ScratchFile scratch;
            num_cases = Write(session, cases, nodes, scratch.Path());
            scratch.Print(session);
        } else {
            num_cases = Write(session, cases, nodes, output_);
        }
        session.Field("cases") = static_cast<int64_t>(num_cases);
    }

private:
    std::vector<node_bn*> ChooseNodes(const net_bn* net) const
    {
        std::vector<node_bn*> nodes;
        for (const std::string& name : nodes_) nodes.push_back(FindNode(net, name));
        if (!nodes_.empty()) return nodes;
        nodes = ToVector(GetNetNodes2_bn(net, nullptr));
        std::erase_if(nodes, [](const node_bn* node) { return !HasBeliefs(node); });
        return nodes;
    }

    double Write(Session& session, const caseset_cs* cases, const nodelist_bn* nodes,
                 const std::string& path) const
    {
        stream_vx* stream = NewFileStream_vx(path.c_str(), session.env, nullptr);
        session.Check();
        std::string options = json_lines_ ? "jsonl" : "";
        if (whole_ || nodes_.empty()) options += options.empty() ? "whole" : ",whole";
        const double num_cases = WriteCaseBeliefs_bn(cases, nodes, stream, options.c_str());
        DeleteStream_vx(stream);
        session.Check();
        return num_cases;
    }

    std::string path_, output_;
    std::vector<std::string> case_files_, nodes_;
    bool whole_ = false, json_lines_ = false;
};

}  // namespace

std::unique_ptr<Command> MakeScore()
{
    return std::make_unique<Score>();
}

}  // namespace command
