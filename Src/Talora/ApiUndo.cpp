// Interface functions: undoing and redoing.
#include <cmath>

#include "BN/Model/Bnet.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

void CheckToWhen(double to_when)
{
    if (to_when != -1) Fail<6310>();
}

// Calls on a net without undo find an empty history.
template <class Walk>
bool WalkHistory(Net& net, double to_when, const char* report,
                 const std::string* (UndoList::*text)(int) const, Walk&& walk)
{
    CheckToWhen(to_when);
    const std::string* next = (*net.undo.*text)(0);
    const std::string name = next ? *next : std::string();
    if (!walk(*net.undo)) return false;
    Raise<6311>(report, name.c_str());
    return true;
}

const char* StepText(const Net& net, int index, const std::string* (UndoList::*text)(int) const)
{
    if (index < 0) Fail<6190>(index);
    const std::string* found = (*net.undo.*text)(index);
    return found ? found->c_str() : nullptr;
}

}  // namespace

void SetNetNumUndos_bn(net_bn* net, int count_limit, double memory_limit, const char* options)
{
    CallApi(__func__, net, [&] {
        if (count_limit < -1) Fail<6312>(count_limit);
        if (!(memory_limit >= 0) && memory_limit != -1) Fail<6313>(memory_limit);
        CheckNoOptions(options);
        const int old_count = net->undo->CountLimit();
        const double old_memory = net->undo->MemoryLimit();
        const int count = count_limit == -1 ? old_count : count_limit;
        const double memory = memory_limit == -1 ? old_memory : std::floor(memory_limit);
        if (count_limit == -1 && memory_limit == -1) return;
        net->undo->SetLimits(count, memory);
    });
}

int GetNetNumUndos_bn(const net_bn* net, double* memory_limit)
{
    if (memory_limit) *memory_limit = UndefDbl();
    return CallApi(__func__, net, -1, [&] {
        if (memory_limit) *memory_limit = net->undo->MemoryLimit();
        return net->undo->CountLimit();
    });
}

void SetNetUndoing_bn(net_bn* net, bool_vx on)
{
    CallApi(__func__, net, [&] {
        UndoList& list = *net->undo;
        list.CheckIdle();
        if (on)
            list.TurnOn();
        else
            list.TurnOff();
    });
}

bool_vx GetNetUndoing_bn(const net_bn* net)
{
    return CallApi(__func__, net, 0, [&] { return net->undo->IsOn(); });
}

bool_vx UndoNetLastOper_vx(net_bn* net, double to_when)
{
    return CallApi(__func__, net, 0, [&] {
        return WalkHistory(*net, to_when, "Undoing", &UndoList::UndoText,
                           [](UndoList& list) { return list.Undo(); });
    });
}

bool_vx RedoNetOper_vx(net_bn* net, double to_when)
{
    return CallApi(__func__, net, 0, [&] {
        return WalkHistory(*net, to_when, "Redoing", &UndoList::RedoText,
                           [](UndoList& list) { return list.Redo(); });
    });
}

const char* GetNetNthUndo_bn(const net_bn* net, int index)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr),
                   [&] { return StepText(*net, index, &UndoList::UndoText); });
}

const char* GetNetNthRedo_bn(const net_bn* net, int index)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr),
                   [&] { return StepText(*net, index, &UndoList::RedoText); });
}

double GetNetUndoMemory_bn(const net_bn* net)
{
    return CallApi(__func__, net, UndefDbl(), [&] { return net->undo->Memory(); });
}

void OpenNetUndoGroup_bn(net_bn* net, const char* description)
{
    CallApi(__func__, net, [&] {
        if (net->undo->IsOn()) net->undo->OpenGroup(NarrowText(description));
    });
}

void CloseNetUndoGroup_bn(net_bn* net)
{
    CallApi(__func__, net, [&] {
        if (net->undo->IsOn()) net->undo->CloseGroup();
    });
}

void AbortNetUndoGroup_bn(net_bn* net)
{
    CallApi(__func__, net, [&] {
        if (!net->undo->IsOn()) Fail<6314>(net->name.c_str());
        net->undo->AbortGroup();
    });
}

int GetNetUndoGroup_bn(const net_bn* net)
{
    return CallApi(__func__, net, -1, [&] { return int(net->undo->GroupStatus()); });
}
