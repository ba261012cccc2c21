// Interface functions: compiling, elimination order, and walking the junction tree.
#include "BN/Inference/BnCompile.h"
#include "BN/Inference/BnUpdating.h"
#include "BN/Model/BnElimOrder.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

void CheckClique(const CompiledNet& compiled, int clique)
{
    if (clique < 0 || clique >= compiled.tree.num_cliques())
        Fail<6050>(clique, compiled.tree.num_cliques() - 1);
}

// The lists that callers get are made when first asked for, and go with the tree.
const NodeList& CliqueList(Net& net, int clique)
{
    CompiledNet& compiled = *net.compiled;
    compiled.clique_lists.resize(size_t(compiled.tree.num_cliques()));
    OwnedList& kept = compiled.clique_lists[size_t(clique)];
    if (!kept) {
        OwnedList list = NewOwnedList(net);
        for (int member : compiled.tree.members[clique]) list->nodes.push_back(compiled.nodes[member]);
        kept = std::move(list);
    }
    return *kept;
}

}  // namespace

void CompileNet_bn(net_bn* net)
{
    CallApi(__func__, net, [&] {
        CompileNet(*net);
        AutoUpdate(*net);
    });
}

void OptimizeNetElimOrder_bn(net_bn* net, double seconds, const char* options)
{
    CallApi(__func__, net, [&] {
        CheckNoOptions(options);
        if (!(seconds > 0) || seconds > 1e9) Fail<6051>(seconds);
        OptimizeElimOrder(*net, seconds);
        AutoUpdate(*net);
    });
}

void UncompileNet_bn(net_bn* net)
{
    CallApi(__func__, net, [&] { DiscardTree(*net); });
}

bool_vx IsNetCompiled_bn(const net_bn* net)
{
    return CallApi(__func__, net, 0, [&] { return net->compiled != nullptr; });
}

void SetNetElimOrder_bn(net_bn* net, const nodelist_bn* order)
{
    CallApi(__func__, With(net, EntriesOf(order, true)), [&] {
        if (order == nullptr) return SetElimOrder(*net, nullptr);
        SetElimOrder(*net, &order->nodes);
    });
}

const nodelist_bn* GetNetElimOrder_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<const nodelist_bn*>(nullptr),
                   [&] { return net->has_elim_order ? &net->elim_order : nullptr; });
}

double GetNetElimCost_bn(const net_bn* net)
{
    return CallApi(__func__, net, UndefDbl(), [&] { return ElimOrderCost(const_cast<Net&>(*net)); });
}

double SizeCompiledNet_bn(const net_bn* net, int method)
{
    return CallApi(__func__, net, UndefDbl(), [&] {
        if (method != 0) Fail<6052>(method);
        return SizesOf(*net).under_findings;
    });
}

const char* ReportJunctionTree_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr), [&] {
        std::string& report = const_cast<Net&>(*net).report;
        report = JunctionTreeReport(*net);
        return report.c_str();
    });
}

int GetNetNumCliques_bn(const net_bn* net)
{
    return CallApi(__func__, net, -1, [&] { return NeedCompiled(*net).tree.num_cliques(); });
}

const nodelist_bn* GetCliqueNodes_bn(const net_bn* net, int clique)
{
    return CallApi(__func__, net, static_cast<const nodelist_bn*>(nullptr), [&] {
        CheckClique(NeedCompiled(*net), clique);
        return &CliqueList(const_cast<Net&>(*net), clique);
    });
}

int GetCliqueNumNeighbors_bn(const net_bn* net, int clique)
{
    return CallApi(__func__, net, -1, [&] {
        const CompiledNet& compiled = NeedCompiled(*net);
        CheckClique(compiled, clique);
        return int(JoinedTo(compiled.tree, clique).size());
    });
}

int GetCliqueNeighbor_bn(const net_bn* net, int clique, int index)
{
    return CallApi(__func__, net, -1, [&] {
        const CompiledNet& compiled = NeedCompiled(*net);
        CheckClique(compiled, clique);
        const std::vector<int> joined = JoinedTo(compiled.tree, clique);
        if (index < 0 || index >= int(joined.size())) Fail<6053>(index, clique, int(joined.size()));
        return joined[index];
    });
}

double GetCliqueSize_bn(const net_bn* net, int clique)
{
    return CallApi(__func__, net, UndefDbl(), [&] {
        const CompiledNet& compiled = NeedCompiled(*net);
        CheckClique(compiled, clique);
        return compiled.tree.clique_sizes[clique];
    });
}

void GetCompiledNetSizes_bn(const net_bn* net, double* sum_cliques, double* sum_with_separators,
                            double* sum_under_findings)
{
    TreeSizes sizes = {UndefDbl(), UndefDbl(), UndefDbl()};
    CallApi(__func__, net, [&] { sizes = SizesOf(*net); });
    if (sum_cliques) *sum_cliques = sizes.cliques;
    if (sum_with_separators) *sum_with_separators = sizes.with_separators;
    if (sum_under_findings) *sum_under_findings = sizes.under_findings;
}

int GetNodeHomeClique_bn(const node_bn* node)
{
    return CallApi(__func__, node, -1, [&] {
        const CompiledNet& compiled = NeedCompiled(*node->net);
        if (node->kind == UTILITY_NODE) {
            for (size_t i = 0; i < compiled.utilities.size(); ++i)
                if (compiled.utilities[i] == node) return compiled.tree.utility_home[i];
            return -1;
        }
        const int variable = compiled.variable_of[node->index];
        return variable < 0 ? -1 : compiled.tree.home[variable];
    });
}
