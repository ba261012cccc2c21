// The nets that benchmarks run on: the generated ones, and those of the folder named by TALORA_CORPUS.
// A net is made or read when it is asked for.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "../Tests/Corpus/NetScan.h"
#include "GeneratedNets.h"

namespace talora::bench {

struct NetSource {
    std::string name;
    std::function<PlainNet()> load;
};

// The numbers of all "probs = ... ;" statements, comments left out.
inline std::vector<std::vector<float>> ScanTables(const std::string& path)
{
    std::vector<std::vector<float>> tables;
    std::ifstream file(path);
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        line.resize(std::min(line.size(), line.find("//")));
        if (line.rfind("\tnode ", 0) == 0) tables.emplace_back();
        inside |= line.find("probs =") != std::string::npos;
        for (const char* at = line.c_str(); inside && *at != 0;) {
            char* end = nullptr;
            const float number = std::strtof(at, &end);
            const bool is_number = end != at && *at != 'p';
            if (is_number) tables.back().push_back(number);
            inside = *at != ';';
            at = is_number ? end : at + 1;
        }
    }
    return tables;
}

// The generated ones, then the others by name.
inline std::vector<NetSource> AllNets()
{
    std::vector<NetSource> nets = {
        {"mildew_like", CropNet}, {"munin_like", MuscleNet}, {"pedigree_700", PedigreeNet}};
    if (test::CorpusFolder().empty()) return nets;
    for (const auto& entry : std::filesystem::directory_iterator(test::CorpusFolder() + "/nets")) {
        if (entry.path().extension() != ".dne" || entry.path().stem() == "mushroom_empty") continue;
        const std::string path = entry.path().string();
        nets.push_back({entry.path().stem().string(), [path] {
                            return PlainNet{test::ScanNet(path).graph, ScanTables(path)};
                        }});
    }
    std::sort(nets.begin() + 3, nets.end(),
              [](const NetSource& a, const NetSource& b) { return a.name < b.name; });
    return nets;
}

}  // namespace talora::bench
