// What the reports of single subcommands show as pages.
#pragma once

#include <vector>

#include "talora/Html.h"

namespace command {

// The measurer must have been asked for all but ratios; of real values only where has_real.
Page SensitivityPage(sensv_bn* sensv, const net_bn* net, const std::vector<node_bn*>& varying, bool has_real);

// The cases have been read by the tester.
Page TestPage(const tester_bn* tester, const net_bn* net, const std::vector<node_bn*>& nodes);

struct Configuration {
    int nth = 0;
    std::vector<state_bn> setting;  // one state per node
    double log_probability = 0;
};
// The configuration that was asked for is the last one.
Page ConfigurationsPage(const net_bn* net, const std::vector<node_bn*>& nodes,
                        const std::vector<Configuration>& configurations);

}  // namespace command
