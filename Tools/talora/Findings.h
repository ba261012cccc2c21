// The options by which findings and searching are asked for, the same wherever a net is queried.
#pragma once

#include <string>
#include <vector>

#include "talora/Command.h"

namespace command {

struct FindingOptions {
    std::vector<std::string> states, ruled_out, likelihoods, values;
    std::string case_file;
    int case_number = 1;
    bool drop_saved = false;

    void Define(CLI::App& app);
    // Enters the findings; throws WrongUsage for what cannot be read and CommandFailed for what
    // does not fit the net.
    void Enter(Session& session, net_bn* net) const;
};

struct CompileOptions {
    double optimize_seconds = 0;

    void Define(CLI::App& app);
    void Compile(Session& session, net_bn* net) const;
};

// The findings a net has, as a line of text: "XRay = Abnormal, Age = 51".
std::string DescribeFindings(const net_bn* net);

}  // namespace command
