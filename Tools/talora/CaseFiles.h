// Files of cases named on the command line.
#pragma once

#include <string>
#include <vector>

#include "talora/Session.h"

namespace command {

// A set of all cases of the files, "-" for standard input; it lives until the session ends.  Throws
// CommandFailed.
caseset_cs* ReadCases(Session& session, const std::vector<std::string>& paths);

// A list of nodes for a call; it lives until the session ends.
nodelist_bn* ToList(const net_bn* net, const std::vector<node_bn*>& nodes);

}  // namespace command
