// Things that a program does with the library, each written once: prepare, act, check.
//
// They are run with every allocation and every file operation failing in turn.  A scenario acts through the
// interface; what it prepares and what is checked afterwards runs without faults.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Support/Texts.h"
#include "Talora.h"

namespace faults {

// What a scenario works on: an environment, objects in it and a folder of its own.
struct World {
    environ_vx* env = nullptr;
    net_bn* net = nullptr;  // watched: its text is to stay when a call fails
    net_bn* other = nullptr;
    stream_vx* stream = nullptr;
    caseset_cs* cases = nullptr;
    learner_bn* learner = nullptr;
    tester_bn* tester = nullptr;
    sensv_bn* sensv = nullptr;
    nodelist_bn* nodes = nullptr;
    std::filesystem::path folder;

    node_bn* Node(const char* name) const { return GetNodeNamed_bn(name, net); }
    const nodelist_bn* All() const { return GetNetNodes2_bn(net, nullptr); }
    std::string Path(const char* file) const { return folder / file; }
};

enum ScenarioFlags : unsigned {
    FILES = 1,      // reads or writes files
    WRITES = 2,     // replaces World::Path("target") as a whole
    APPENDS = 4,    // adds to World::Path("target")
    CHANGES = 8,    // an edit: run with and without a history of the net
    NO_WORLD = 16,  // makes its own environment
    FAILS = 32      // has an error also without a fault
};

struct Scenario {
    const char* label;
    void (*prepare)(World& world);
    bool (*act)(World& world);    // @return whether the calls gave what they give when all goes well
    bool (*check)(World& world);  // after success; null: nothing more to check
    unsigned flags;
};

const std::vector<Scenario>& AllScenarios();

void OpenWorld(World& world, const std::filesystem::path& folder);  // environment and net
void CloseWorld(World& world);                                      // everything in it

bool NoErrors(environ_vx* env);
std::string FileText(const std::filesystem::path& path);
void PutFile(const std::filesystem::path& path, const std::string& text);

// The net of the scenarios, and 30 cases of it.
extern const char* const kGardenText;
extern const char* const kGardenCases;
// A generated net of so many nodes as text, some 200 bytes each.
std::string LargeNetText(int num_nodes);

}  // namespace faults
