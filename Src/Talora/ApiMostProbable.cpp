// Interface functions: most probable configurations.
#include "BN/Inference/MostProbable.h"
#include "Talora/APICheck.h"

using namespace talora;

void SetNetMostProbable_bn(net_bn* net, bool_vx most_probable)
{
    CallApi(__func__, net, [&] { SetMostProbable(*net, most_probable != 0); });
}

bool_vx GetNetMostProbable_bn(const net_bn* net)
{
    return CallApi(__func__, net, bool_vx(0), [&] { return net->most_probable; });
}

const char* ReportMostProbable_bn(net_bn* net)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr), [&] {
        net->report = ReportMostProbable(*net);
        return net->report.c_str();
    });
}

state_bn GetNodeMostProbableState_bn(const node_bn* node)
{
    return CallApi(__func__, node, state_bn(UNDEF_STATE), [&] { return node->most_probable_state; });
}

double MostProbableConfig_bn(net_bn* net, state_bn* setting, int nth)
{
    return CallApi(__func__, net, UndefDbl(), [&] {
        if (setting == nullptr) Fail<6804>();
        return FindConfiguration(*net, nullptr, nth, setting);
    });
}

double MostProbableSetting_bn(const nodelist_bn* nodes, state_bn* setting, int nth)
{
    return CallApi(__func__, With(nodes, EntriesOf(nodes)), UndefDbl(), [&] {
        if (setting == nullptr) Fail<6804>();
        if (nodes->nodes.empty()) return UndefDbl();
        Net& net = NetOfAll(nodes);
        return FindConfiguration(net, &nodes->nodes, nth, setting);
    });
}
