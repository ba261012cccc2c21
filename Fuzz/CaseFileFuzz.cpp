// Case files from bytes, over three nets.
//
//   byte 0   net; how questions are answered (with the default, or always with the same answer)
//   byte 1   delimiter of the environment; missing-data character
//   rest     the file
//
// The lines and entries are the same however few bytes one read gives; a case read again by its position is
// the same case; and what is read can be written as one file that gives the same cases, unless answers have
// changed the net or settled what the file leaves open.
#include <cstring>
#include <string>
#include <vector>

#include "BN/Model/BnBasicOps1.h"
#include "Basic/Error.h"
#include "Fuzz/Harness.h"
#include "Talora/APICheck.h"
#include "VarVal/CaseFile.h"
#include "VarVal/CaseFindings.h"
#include "VarVal/Caseset.h"

namespace {

using namespace talora;

constexpr int kMostCasesReread = 20;

Net* PlainNet(environ_vx& env)
{
    Net* net = NewNet(env, "Plain");
    SetStateNames(*AddNode(*net, "A", 2), {"no", "yes"});
    SetStateNames(*AddNode(*net, "B", 3), {"low", "middle", "high"});
    return net;
}

Net* MixedNet(environ_vx& env)
{
    Net* net = PlainNet(env);
    AddNode(*net, "C", 0);
    AddNode(*net, "N", 4);
    const double thresholds[] = {0, 1, 2.5}, levels[] = {1, 2};
    SetLevels(*AddNode(*net, "D", 0), 2, thresholds);
    SetLevels(*AddNode(*net, "L", 2), 2, levels);
    return net;
}

Net* EmptyNet(environ_vx& env)
{
    return NewNet(env, "Empty");
}

int num_questions = 0;

int Answer(environ_vx*, const char*, const char*, const char*, void* data)
{
    ++num_questions;
    return *static_cast<const int*>(data);
}

// ---- Feeding ----

// Header, lines and entries of a file, or the number of the failure, when a read gives few bytes.
std::string Lines(const Stream& file, size_t most_at_once)
{
    std::string all;
    try {
        CaseBytes bytes(file);
        bytes.most_at_once = most_at_once;
        CaseFileReader reader(bytes, ',', false, kSmallCaseBlockBytes);
        for (const std::string& column : reader.Header().columns) all += column + "|";
        LineSplitter splitter(reader.Header().delimiter);
        for (CaseLine line; reader.Next(line);) {
            all += "\n" + std::to_string(line.number) + "@" + std::to_string(line.position) + ":";
            const int count = splitter.Split(line, 1000);
            for (int i = 0; i < std::min(count, 1000); ++i) all.append(splitter.Entry(i)).append("|");
        }
    } catch (const Unwind& failure) {
        all += "failed with " + std::to_string(failure.record->number);
        ClearReport(failure.record);
    }
    return all;
}

void CheckFeeding(const Stream& file)
{
    const std::string whole = Lines(file, SIZE_MAX);
    for (const size_t most_at_once : {1, 7, 4096})
        fuzz::Check(Lines(file, most_at_once) == whole, "few bytes at a time give the same cases");
}

// ---- Reading one by one ----

std::vector<NodeFinding> FindingsOf(const Net& net)
{
    std::vector<NodeFinding> findings;
    for (const Node* node : net.nodes.nodes) findings.push_back(node->finding);
    return findings;
}

bool CheckPositions(Stream& file, Net& net, AddMode mode)
{
    for (int i = 0; i < kMostCasesReread; ++i) {
        const FoundCase found = ReadFindings(file, net, net.nodes.nodes, i == 0 ? 0 : kNextCase, mode);
        if (found.position < 0) break;
        const std::vector<NodeFinding> findings = FindingsOf(net);
        Stream again;
        again.env = file.env;
        again.in_memory = true;
        again.name = file.name;
        again.contents = file.contents;
        const FoundCase same = ReadFindings(again, net, net.nodes.nodes, found.position, AddMode::NEVER);
        fuzz::Check(same.position == found.position && same.id == found.id && same.freq == found.freq &&
                        FindingsOf(net) == findings,
                    "a case read by its position is the same");
    }
    return true;
}

// ---- Sets ----

// All cases as one list of numbers.
std::vector<double> ReadAll(const Caseset& cases, const Net& net)
{
    std::vector<double> all;
    CaseReader reader(cases, net.nodes.nodes);
    for (CaseBlock block; reader.Next(block);) {
        for (int row = 0; row < block.num_cases; ++row) {
            const auto at = static_cast<size_t>(row);
            all.push_back(block.weights[at]);
            all.push_back(static_cast<double>(block.ids[at]));
            for (size_t i = 0; i < block.states.size(); ++i) {
                all.push_back(block.states[i][at]);
                if (!block.values[i].empty()) all.push_back(block.values[i][at]);
            }
        }
        for (const CaseLikelihood& likelihood : block.likelihoods)
            all.insert(all.end(), likelihood.weights.begin(), likelihood.weights.end());
    }
    return all;
}

Caseset* SetOf(const Stream& stream)
{
    Caseset* cases = NewCaseset(*stream.env, "");
    AddFileToCaseset(*cases, stream, 1, false);
    return cases;
}

// What is read is written as one file, and gives the same cases again.
void CheckRewriting(const Stream& in, Stream& out, Net& net)
{
    Caseset* const cases = SetOf(in);
    std::vector<double> read;
    const bool was_read = CallApi(__func__, cases, false, [&] {
        read = ReadAll(*cases, net);
        WriteCaseset(*cases, out);
        return true;
    });
    DeleteCaseset(cases);
    if (!was_read) return;
    Caseset* const again = SetOf(out);
    const bool reads_same = CallApi(__func__, again, false, [&] { return ReadAll(*again, net) == read; });
    if (!reads_same && num_questions == 0 && !fuzz::Input::WasHalted()) {
        const std::string_view written(out.contents.data(), out.contents.size());
        fprintf(stderr, "--- written\n%.*s\n", int(written.size()), written.data());
        fuzz::Check(false, "what was written gives the same cases");
    }
    DeleteCaseset(again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using NetMaker = Net* (*)(environ_vx&);
    static constexpr NetMaker kNets[] = {PlainNet, MixedNet, EmptyNet};
    static constexpr char kDelimiters[] = {',', '\t', ' '}, kMissing[] = {'*', '?', 0, '-'};
    const fuzz::Input input;
    fuzz::Bytes bytes(data, size);
    const uint8_t kind = bytes.Byte(), chars = bytes.Byte();
    environ_vx* const env = fuzz::Environ();
    env->case_delimiter = kDelimiters[chars % 3];
    env->missing_char = kMissing[chars / 3 % 4];
    int answer = kind / 3 % 5 - 1;
    num_questions = 0;
    SetQuestionHandler_vx(env, answer < 0 ? nullptr : Answer, &answer);

    Stream* const in = fuzz::NewStreamOf(bytes.Rest(), "in.cas");
    Stream* const out = NewMemoryStream_vx("out.cas", env, nullptr);
    Net* const net = kNets[kind % 3](*env);
    CallEnviron(__func__, env, [&](environ_vx&) { CheckFeeding(*in); });
    const AddMode mode = kind % 3 == 2 ? AddMode::QUIETLY : AddMode::NEVER;
    if (answer < 0) CallEnviron(__func__, env, [&](environ_vx&) { CheckPositions(*in, *net, mode); });
    CheckRewriting(*in, *out, *net);
    GetNetName_bn(net);
    DeleteNet_bn(net);
    DeleteStream_vx(in);
    DeleteStream_vx(out);
    SetQuestionHandler_vx(env, nullptr, nullptr);
    return 0;
}
