// Interface functions: probability, function and experience tables.
#include "BN/Model/BnProbs.h"
#include "Talora/APICheck.h"

using namespace talora;

void SetNodeProbs_bn(node_bn* node, const state_bn* parent_states, const prob_bn* probs)
{
    CallApi(__func__, node, [&] { SetProbs(*node, parent_states, probs); });
}

const prob_bn* GetNodeProbs_bn(const node_bn* node, const state_bn* parent_states)
{
    return CallApi(__func__, node, static_cast<const prob_bn*>(nullptr),
                   [&] { return GetProbs(*node, parent_states); });
}

// The size is compared before anything is read from the caller's array.
void SetNodeTable_bn(node_bn* node, const prob_bn* probs, int64_t num_entries)
{
    CallApi(__func__, node, [&] {
        if (probs == nullptr) Fail<5113>();
        CheckCanHaveTable(*node);
        const double entries = TableEntries(*node);
        if (double(num_entries) != entries) Fail<6156>(node->name.c_str(), double(num_entries), entries);
        CheckMemory(entries * sizeof(float), "to build table for >-node '%s' (see >-LimitMemoryUsage_vx)",
                    node->name.c_str());
        SetTable(*node, TableVector<float>(probs, probs + num_entries));
    });
}

const prob_bn* GetNodeTable_bn(const node_bn* node, int64_t* num_entries)
{
    if (num_entries) *num_entries = 0;
    return CallApi(__func__, node, static_cast<const prob_bn*>(nullptr), [&]() -> const prob_bn* {
        const TableVector<float>& probs = node->tables.probs;
        if (num_entries) *num_entries = int64_t(probs.size());
        return probs.empty() ? nullptr : probs.data();
    });
}

bool_vx IsMissingProb_bn(prob_bn entry)
{
    return entry == MissingProb();
}
bool_vx IsImpossibleProb_bn(prob_bn entry)
{
    return entry == ImpossibleProb();
}
prob_bn GetMissingProb_bn()
{
    return MissingProb();
}

double SizeNodeTable_bn(const node_bn* node)
{
    return CallApi(__func__, node, UndefDbl(), [&] { return TableEntries(*node); });
}

void SetNodeFuncState_bn(node_bn* node, const state_bn* parent_states, state_bn state)
{
    CallApi(__func__, node, [&] { SetFuncState(*node, parent_states, state); });
}

state_bn GetNodeFuncState_bn(const node_bn* node, const state_bn* parent_states)
{
    return CallApi(__func__, node, int(UNDEF_STATE), [&] { return GetFuncState(*node, parent_states); });
}

void SetNodeFuncReal_bn(node_bn* node, const state_bn* parent_states, double value)
{
    CallApi(__func__, node, [&] { SetFuncReal(*node, parent_states, value); });
}

double GetNodeFuncReal_bn(const node_bn* node, const state_bn* parent_states)
{
    return CallApi(__func__, node, UndefDbl(), [&] { return GetFuncReal(*node, parent_states); });
}

void SetNodeExperience_bn(node_bn* node, const state_bn* parent_states, double experience)
{
    CallApi(__func__, node, [&] { SetExperience(*node, parent_states, experience); });
}

double GetNodeExperience_bn(const node_bn* node, const state_bn* parent_states)
{
    return CallApi(__func__, node, UndefDbl(), [&] { return GetExperience(*node, parent_states); });
}

void DeleteNodeTables_bn(node_bn* node)
{
    CallApi(__func__, node, [&] { DeleteTables(*node); });
}

bool_vx HasNodeTable_bn(const node_bn* node, bool_vx* complete)
{
    if (complete) *complete = 0;
    return CallApi(__func__, node, 0, [&] {
        bool is_complete = false;
        const bool has_table = HasTable(*node, &is_complete);
        if (complete) *complete = is_complete;
        return has_table;
    });
}

bool_vx IsNodeDeterministic_bn(const node_bn* node)
{
    return CallApi(__func__, node, 0, [&] { return IsDeterministic(*node); });
}
