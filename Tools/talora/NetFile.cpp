// Nets, nodes and states by the names given on the command line.
#include "talora/NetFile.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>

#include "talora/Password.h"
#include "talora/Text.h"

namespace command {

namespace {

constexpr size_t kChunk = 1 << 16;
constexpr int kNoPassword = -6858;  // record of the library

std::string ReadStandardInput()
{
    std::string contents;
    size_t got = 0;
    do {
        const size_t end = contents.size();
        contents.resize(end + kChunk);
        got = fread(contents.data() + end, 1, kChunk, stdin);
        contents.resize(end + got);
    } while (got > 0);
    if (ferror(stdin)) throw CommandFailed("could not read standard input: " + SystemReason());
    return contents;
}

bool IsBinaryName(const std::string& path)
{
    constexpr std::string_view kExtension = ".tala";
    return path.size() > kExtension.size() &&
           strcasecmp(path.c_str() + path.size() - kExtension.size(), kExtension.data()) == 0;
}

// Letters that must change to get from one name to the other (Levenshtein 1966), without case.
size_t EditDistance(const std::string& a, const std::string& b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (tolower(a[i - 1]) != tolower(b[j - 1]));
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string NearestNode(const net_bn* net, const std::string& name)
{
    constexpr size_t kLongestName = 30;
    std::string nearest;
    if (name.size() > 2 * kLongestName) return nearest;
    size_t best = name.size() / 3 + 1;
    for (const std::string& candidate : NodeNames(GetNetNodes2_bn(net, nullptr))) {
        const size_t distance = EditDistance(name, candidate);
        if (distance > best || (distance == best && !nearest.empty())) continue;
        best = distance;
        nearest = candidate;
    }
    return nearest;
}

void AddLosses(stream_vx* stream, std::vector<Loss>& losses)
{
    Loss loss;
    const char *what = nullptr, *nodes = nullptr, *instead = nullptr;
    for (int i = 0; GetNthStreamLoss_vx(stream, i, &loss.severity, &what, &nodes, &instead); ++i) {
        loss.what = what;
        loss.instead = instead;
        loss.nodes.clear();
        const std::string list = nodes;
        for (size_t at = 0; at < list.size();) {
            const size_t end = std::min(list.find(", ", at), list.size());
            loss.nodes.push_back(list.substr(at, end - at));
            at = end + 2;
        }
        losses.push_back(loss);
    }
}

}  // namespace

Stream OpenInput(Session& session, const std::string& path)
{
    Stream stream(path == "-" ? NewMemoryStream_vx("standard input", session.env, nullptr)
                              : NewFileStream_vx(path.c_str(), session.env, nullptr));
    session.Check();
    if (path == "-") {
        const std::string contents = ReadStandardInput();
        SetStreamContents_vx(stream.get(), contents.data(), static_cast<int64_t>(contents.size()));
    }
    SetPassword(session, stream.get());
    session.Check();
    return stream;
}

net_bn* ReadNet(Session& session, const std::string& path, std::string* format, std::vector<Loss>* losses)
{
    const Stream stream = OpenInput(session, path);
    net_bn* net = ReadNet_bn(stream.get(), NO_WINDOW);
    if (!net) {
        const report_vx* error = GetError_vx(session.env, ERROR_SEVERITY, 0, nullptr);
        if (error && ErrorNumber_vx(error) == kNoPassword)
            throw CommandFailed(
                "the password can be given with --password-file FILE, or typed at a terminal");
        session.Check();
        throw CommandFailed("could not read a net from '" + path + "'");
    }
    // A net that asks to be compiled and cannot be is still a net to look at and to convert.
    session.AcceptErrors();
    session.Check();
    const char* const found = GetStreamFormat_vx(stream.get());
    if (format != nullptr && found != nullptr) *format = found;
    if (losses != nullptr) AddLosses(stream.get(), *losses);
    return net;
}

net_bn* ReadNetForQuery(Session& session, const std::string& path)
{
    net_bn* net = ReadNet(session, path);
    SetNetAutoUpdate_bn(net, 0);
    session.Check();
    return net;
}

void WriteNet(Session& session, net_bn* net, const std::string& path, const std::string& format, bool strict,
              std::vector<Loss>* losses)
{
    const bool to_output = path == "-";
    const Stream stream(to_output ? NewMemoryStream_vx("standard_output.dne", session.env, nullptr)
                                  : NewFileStream_vx(path.c_str(), session.env, nullptr));
    session.Check();
    // Text is not encrypted; who converts to it knows.
    if (IsBinaryName(path))
        SetPassword(session, stream.get());
    else
        SetNetPassword_bn(net, nullptr);
    WriteNetAs_bn(net, stream.get(), format.c_str(), strict ? "strict" : nullptr);
    session.Check();
    if (losses != nullptr) AddLosses(stream.get(), *losses);
    if (!to_output) return;
    int64_t length = 0;
    const char* contents = GetStreamContents_vx(stream.get(), &length);
    session.Check();
    session.PrintRaw({contents, static_cast<size_t>(length)});
}

node_bn* FindNode(const net_bn* net, const std::string& name)
{
    // Looked up in the list: a text that is no legal name would be an error of the library's.
    for (node_bn* node : ToVector(GetNetNodes2_bn(net, nullptr)))
        if (name == GetNodeName_bn(node)) return node;
    const std::string nearest = NearestNode(net, name);
    throw CommandFailed("there is no node '" + name + "' in net '" + GetNetName_bn(net) + "'" +
                        (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"));
}

bool HasBeliefs(const node_bn* node)
{
    const nodekind_bn kind = GetNodeKind_bn(node);
    return (kind == NATURE_NODE || kind == DECISION_NODE) && GetNodeNumberStates_bn(node) > 0;
}

state_bn FindState(const node_bn* node, const std::string& name)
{
    const int num_states = GetNodeNumberStates_bn(node);
    std::string known;
    for (state_bn state = 0; state < num_states; ++state) {
        const std::string state_name = StateName(node, state);
        if (name == state_name) return state;
        if (state < 20) known += (state ? ", " : "") + state_name;
    }
    if (name.starts_with('#')) {
        int index = -1;
        const char* end = name.data() + name.size();
        const auto [rest, error] = std::from_chars(name.data() + 1, end, index);
        if (error == std::errc() && rest == end && index >= 0 && index < num_states) return index;
        throw CommandFailed("node '" + std::string(GetNodeName_bn(node)) + "' has no state '" + name +
                            "' (its " + std::to_string(num_states) + " states count from #0)");
    }
    if (num_states > 20) known += ", ...";
    throw CommandFailed("node '" + std::string(GetNodeName_bn(node)) + "' has no state '" + name + "'" +
                        (known.empty() ? "" : " (its states are " + known + ")"));
}

std::vector<std::string> StateNames(const node_bn* node)
{
    std::vector<std::string> names;
    const int num_states = GetNodeNumberStates_bn(node);
    if (num_states > kMostStatesListed) return names;
    for (state_bn state = 0; state < num_states; ++state) names.push_back(StateName(node, state));
    return names;
}

std::string StateName(const node_bn* node, state_bn state)
{
    const char* name = GetNodeStateName_bn(node, state);
    return name && *name ? name : "#" + std::to_string(state);
}

std::vector<node_bn*> ToVector(const nodelist_bn* list)
{
    std::vector<node_bn*> nodes;
    const int length = list ? std::max(0, LengthNodeList_bn(list)) : 0;
    nodes.reserve(static_cast<size_t>(length));
    for (int i = 0; i < length; ++i) nodes.push_back(NthNode_bn(list, i));
    return nodes;
}

std::vector<std::string> NodeNames(const nodelist_bn* list)
{
    std::vector<std::string> names;
    for (const node_bn* node : ToVector(list)) names.emplace_back(node ? GetNodeName_bn(node) : "");
    return names;
}

}  // namespace command
