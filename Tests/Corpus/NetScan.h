// Reads just the graph of a corpus net: names, state counts, parents.  For tests of code that
// works on plain graphs; it knows only the layout in which the corpus is written.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "BN/Order/Triangulation.h"

namespace talora::test {

struct ScannedNet {
    ModelGraph graph;
    std::vector<std::string> names;
    std::map<std::string, int> number_of;  // by name
};

// Empty when the corpus is not there.
inline std::string CorpusFolder()
{
    const char* folder = std::getenv("TALORA_CORPUS");
    return folder ? folder : "";
}

// The names in "key = (a, b, c);".
inline std::vector<std::string> ScanNames(const std::string& line)
{
    size_t open = line.find('('), close = line.rfind(')');
    std::vector<std::string> names;
    std::istringstream in(line.substr(open + 1, close - open - 1));
    for (std::string name; std::getline(in >> std::ws, name, ',');) names.push_back(name);
    return names;
}

inline void RankNames(ScannedNet& net)
{
    int rank = 0;
    for (const auto& [name, v] : net.number_of) net.graph.variables[v].name_rank = rank++;
}

inline ScannedNet ScanNet(const std::string& path)
{
    ScannedNet net;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("\tnode ", 0) == 0) {
            std::string name = line.substr(6, line.find(' ', 6) - 6);
            net.number_of[name] = static_cast<int>(net.names.size());
            net.names.push_back(name);
            net.graph.variables.emplace_back();
        } else if (line.rfind("\t\tstates = ", 0) == 0) {
            net.graph.variables.back().num_states = static_cast<int>(ScanNames(line).size());
        } else if (line.rfind("\t\tparents = ", 0) == 0) {
            for (const std::string& parent : ScanNames(line))
                net.graph.variables.back().parents.push_back(net.number_of.at(parent));
        }
    }
    RankNames(net);
    return net;
}

}  // namespace talora::test
