// Options that name case files, and the set of cases read from them.
#include "talora/CaseFiles.h"

#include "talora/NetFile.h"

namespace command {

caseset_cs* ReadCases(Session& session, const std::vector<std::string>& paths)
{
    caseset_cs* cases = NewCaseset_cs("", session.env);
    for (const std::string& path : paths) {
        const Stream stream = OpenInput(session, path);
        AddFileToCaseset_cs(cases, stream.get(), 1, nullptr);
        session.Check();
    }
    session.Check();
    return cases;
}

// The list is freed with the environment.
nodelist_bn* ToList(const net_bn* net, const std::vector<node_bn*>& nodes)
{
    nodelist_bn* list = NewNodeList2_bn(static_cast<int>(nodes.size()), net);
    for (size_t i = 0; i < nodes.size(); ++i) SetNthNode_bn(list, static_cast<int>(i), nodes[i]);
    return list;
}

}  // namespace command
