// Nets in files, on standard input and on standard output ("-"), and looking things up in them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "talora/Session.h"

namespace command {

struct StreamCloser {
    void operator()(stream_vx* stream) const { DeleteStream_vx(stream); }
};
using Stream = std::unique_ptr<stream_vx, StreamCloser>;

// A file, or all of standard input ("-"), to be read with the password given.  Throws CommandFailed.
Stream OpenInput(Session& session, const std::string& path);

// What a conversion between formats could not carry.
struct Loss {
    int severity;
    std::string what, instead;
    std::vector<std::string> nodes;
};

// Reads a net in any format; it lives until the session ends.  Throws CommandFailed.
// @param format  receives the format, @param losses  what could not be read; unless null
net_bn* ReadNet(Session& session, const std::string& path, std::string* format = nullptr,
                std::vector<Loss>* losses = nullptr);

// The same for a net that is only queried: it does not update its beliefs after each finding.
net_bn* ReadNetForQuery(Session& session, const std::string& path);

// @param format  "": by the extension  @param strict  fails where answers would change
// @param losses  what could not be written is added to these
void WriteNet(Session& session, net_bn* net, const std::string& path, const std::string& format = "",
              bool strict = false, std::vector<Loss>* losses = nullptr);

// Throws CommandFailed, with the nearest names, when there is no such node.
node_bn* FindNode(const net_bn* net, const std::string& name);
// Nodes that are meant when none is named; one that is named is asked for whatever it is.
bool HasBeliefs(const node_bn* node);
// "name" or "#index".  Throws CommandFailed with the states that there are.
state_bn FindState(const node_bn* node, const std::string& name);

// The name of a state, "#index" if it has none.
std::string StateName(const node_bn* node, state_bn state);
// The names of all states; none for a node with more than kMostStatesListed, which only a file that
// states a count and names nothing can have.
constexpr int kMostStatesListed = 100000;
std::vector<std::string> StateNames(const node_bn* node);

std::vector<node_bn*> ToVector(const nodelist_bn* list);
std::vector<std::string> NodeNames(const nodelist_bn* list);

}  // namespace command
