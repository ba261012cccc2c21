// Writes the cases of a set with the beliefs that they give rise to, as columns or as lines of JSON.
#include "BN/CaseRuns/CaseScores.h"

#include <charconv>
#include <optional>
#include <unordered_set>

#include "BN/CaseRuns/CaseBeliefs.h"
#include "Basic/Progress.h"
#include "Basic/Text.h"
#include "VarVal/CaseFile.h"
#include "VarVal/CaseWrite.h"

namespace talora {

namespace {

// Nodes of one net, each once, each with beliefs.
void CheckScoredNodes(const std::vector<Node*>& nodes)
{
    if (nodes.empty()) Fail<6752>();
    std::unordered_set<const Node*> seen;
    for (const Node* node : nodes) {
        if (node->net != nodes[0]->net) Fail<6753>(nodes[0]->name.c_str(), node->name.c_str());
        if (!seen.insert(node).second) Fail<6180>(node->name.c_str());
        if (!IsInTree(*node) || !HasStates(*node)) Fail<6754>(node->name.c_str());
    }
}

// The shortest digits that read back to the same number, whatever the locale.
template <class Number>
void AppendNumber(std::string& text, Number value)
{
    char buffer[32];
    text.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

// Writes cases as lines of text, each followed by its beliefs.
class ColumnWriter {
public:
    ColumnWriter(const std::vector<Node*>& nodes, ByteSink& sink)
        : env_(*nodes[0]->net->env), nodes_(nodes), sink_(sink), signs_(SignsOf(env_))
    {}

    // The header is written once, from the first source; the others must have the same columns.
    void BeginSource(const CaseSource& source)
    {
        lines_.emplace(source, env_.case_delimiter, false);
        const CaseFileHeader& header = lines_->Header();
        if (columns_.empty()) {
            columns_ = header.columns;
            WriteHeader(header);
        } else if (columns_ != header.columns) {
            Fail<6755>(source.name.c_str());
        }
    }

    void Add(const CaseBlock& block, const CaseBeliefs& beliefs)
    {
        std::string text;
        CaseLine line;
        for (int row = 0; row < block.num_cases; ++row) {
            // Cases that the reader skips come between.
            do {
                if (!lines_->Next(line)) Fail<6756>(lines_->Name().c_str());
            } while (line.position < block.positions[size_t(row)]);
            text += line.text;
            for (size_t i = 0; i < nodes_.size(); ++i) AddBeliefs(text, row, int(i), beliefs);
            text += '\n';
        }
        sink_.Write(text);
    }

private:
    // The columns as they were, then one for each state of each node.
    void WriteHeader(const CaseFileHeader& header)
    {
        signs_.delimiter = header.delimiter;
        std::string text = "// ~->[CASE-1]->~\n\n";
        for (const std::string& column : header.columns) {
            if (&column != &header.columns.front()) text += signs_.delimiter;
            AppendEntry(text, column, signs_);
        }
        for (const Node* node : nodes_)
            for (int state = 0; state < NumStates(*node); ++state)
                text += signs_.delimiter + ("P(" + node->name + "=" + StateWord(*node, state) + ")");
        sink_.Write(text + "\n");
    }

    void AddBeliefs(std::string& text, int row, int asked, const CaseBeliefs& beliefs) const
    {
        const int num_states = NumStates(*nodes_[size_t(asked)]);
        for (int state = 0; state < num_states; ++state) {
            text += signs_.delimiter;
            if (beliefs.IsPossible(row))
                AppendNumber(text, beliefs.Belief(row, asked)[size_t(state)]);
            else
                AppendMissing(text, signs_);
        }
    }

    const environ_vx& env_;
    const std::vector<Node*>& nodes_;
    ByteSink& sink_;
    std::optional<CaseFileReader> lines_;
    std::vector<std::string> columns_;
    CaseSigns signs_;
};

// Writes a JSON object per case.  Names of nodes and states need no escapes.
class JsonLineWriter {
public:
    JsonLineWriter(const std::vector<Node*>& nodes, ByteSink& sink) : sink_(sink)
    {
        for (const Node* node : nodes) {
            std::vector<std::string> keys;
            for (int state = 0; state < NumStates(*node); ++state)
                keys.push_back((state == 0 ? "{\"" : ",\"") + StateWord(*node, state) + "\":");
            names_.push_back("\"" + node->name + "\":");
            keys_.push_back(std::move(keys));
        }
    }

    void BeginSource(const CaseSource&) {}

    void Add(const CaseBlock& block, const CaseBeliefs& beliefs)
    {
        std::string text;
        for (int row = 0; row < block.num_cases; ++row) {
            text += "{\"case\":";
            AppendNumber(text, ++num_cases_);
            text += ",\"id\":";
            if (block.ids[size_t(row)] >= 0)
                AppendNumber(text, block.ids[size_t(row)]);
            else
                text += "null";
            text += ",\"weight\":";
            AppendNumber(text, block.weights[size_t(row)]);
            AddBeliefs(text, row, beliefs);
            text += "}\n";
        }
        sink_.Write(text);
    }

private:
    void AddBeliefs(std::string& text, int row, const CaseBeliefs& beliefs) const
    {
        if (!beliefs.IsPossible(row)) {
            text += ",\"log_probability\":null,\"beliefs\":null";
            return;
        }
        text += ",\"log_probability\":";
        AppendNumber(text, beliefs.LogProbability(row));
        text += ",\"beliefs\":{";
        for (size_t i = 0; i < names_.size(); ++i) {
            if (i > 0) text += ',';
            text += names_[i];
            for (size_t state = 0; state < keys_[i].size(); ++state) {
                text += keys_[i][state];
                AppendNumber(text, beliefs.Belief(row, int(i))[state]);
            }
            text += '}';
        }
        text += '}';
    }

    ByteSink& sink_;
    std::vector<std::string> names_;              // by node: "Name":
    std::vector<std::vector<std::string>> keys_;  // by node and state: {"State": or ,"State":
    int64_t num_cases_ = 0;
};

// One warning per case; the list of records cuts repeats short.
void WarnOfImpossible(const Net& net, const CaseReader& reader, const CaseBlock& block,
                      const CaseBeliefs& beliefs)
{
    for (int row = 0; row < block.num_cases; ++row)
        if (!beliefs.IsPossible(row)) Warn<6757>(reader.Place(block, row).c_str(), net.name.c_str());
}

// Block by block, so that memory does not grow with the number of cases.
template <class Writer>
double WriteCases(CaseReader& reader, CaseBeliefs& beliefs, const Net& net, Writer& writer)
{
    Progress progress("Finding beliefs of cases");
    CaseBlock block;
    const CaseSource* source = nullptr;
    double num_cases = 0;
    while (progress.Step(reader.Fraction()) && reader.Next(block)) {
        if (&reader.Source() != source) writer.BeginSource(*(source = &reader.Source()));
        if (!beliefs.Compute(block)) break;
        WarnOfImpossible(net, reader, block, beliefs);
        writer.Add(block, beliefs);
        num_cases += block.num_cases;
    }
    if (progress.Halted() || IsHalted()) FailWith<6758>(ABORTED_CND);
    return num_cases;
}

}  // namespace

double WriteCaseBeliefs(const Caseset& cases, const std::vector<Node*>& nodes, Stream& output,
                        const ScoreOptions& options)
{
    CheckScoredNodes(nodes);
    Net& net = *nodes[0]->net;
    // 1. What the cases say of the nodes themselves is read, for their columns, but entered only if asked
    // for.
    const std::unordered_set<const Node*> own(nodes.begin(), nodes.end());
    std::vector<Node*> read;
    std::vector<char> enters;
    for (Node* node : net.nodes.nodes) {
        if (!IsInTree(*node) || !HasStates(*node)) continue;
        read.push_back(node);
        enters.push_back(options.whole_cases || own.count(node) == 0);
    }
    // 2. The output is a file only when it is complete: a failure or a halt leaves the old one.
    CaseReader reader(cases, read);
    CaseBeliefs beliefs(net, nodes, read, enters);
    ByteSink sink(output);
    double num_cases = 0;
    if (options.json_lines) {
        JsonLineWriter writer(nodes, sink);
        num_cases = WriteCases(reader, beliefs, net, writer);
    } else {
        ColumnWriter writer(nodes, sink);
        num_cases = WriteCases(reader, beliefs, net, writer);
    }
    sink.Commit();
    return num_cases;
}

}  // namespace talora
