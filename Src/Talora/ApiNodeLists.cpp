// Interface functions: node lists.
#include <algorithm>

#include "BN/Model/Bnet.h"
#include "Talora/APICheck.h"

using namespace talora;

namespace {

void NeedCallersList(const nodelist_bn& list)
{
    if (list.owned) Fail<6200>();
}

void CheckIndex(const nodelist_bn& list, int index, int end)
{
    if (index < 0 || index >= end) Fail<6201>(index, int(list.nodes.size()));
}

}  // namespace

nodelist_bn* NewNodeList2_bn(int length, const net_bn* net)
{
    return CallApi(__func__, net, static_cast<nodelist_bn*>(nullptr), [&] {
        if (length < 0) Fail<6202>(length);
        CheckMemory(double(length) * sizeof(node_bn*), "to make >-Bnodes of length %d", length);
        return NewNodeList(*net->env, size_t(length));
    });
}

nodelist_bn* DupNodeList_bn(const nodelist_bn* list)
{
    return CallApi(__func__, list, static_cast<nodelist_bn*>(nullptr), [&] {
        CheckMemory(double(list->nodes.size()) * sizeof(node_bn*), "to make >-Bnodes of length %d",
                    int(list->nodes.size()));
        nodelist_bn* copy = NewNodeList(*list->env, list->nodes.size());
        copy->nodes = list->nodes;
        return copy;
    });
}

void DeleteNodeList_bn(nodelist_bn* list)
{
    if (list == nullptr) return;
    CallApi(__func__, list, [&] {
        NeedCallersList(*list);
        DeleteNodeList(list);
    });
}

void ClearNodeList_bn(nodelist_bn* list)
{
    CallApi(__func__, list, [&] {
        NeedCallersList(*list);
        list->nodes.clear();
    });
}

int LengthNodeList_bn(const nodelist_bn* list)
{
    return CallApi(__func__, list, -1, [&] { return int(list->nodes.size()); });
}

node_bn* NthNode_bn(const nodelist_bn* list, int index)
{
    return CallApi(__func__, list, static_cast<node_bn*>(nullptr), [&] {
        CheckIndex(*list, index, int(list->nodes.size()));
        return list->nodes[index];
    });
}

void SetNthNode_bn(nodelist_bn* list, int index, node_bn* node)
{
    CallApi(__func__, With(list, Read(node)), [&] {
        NeedCallersList(*list);
        if (node != nullptr) CheckHandle(node);
        CheckIndex(*list, index, int(list->nodes.size()));
        list->nodes[index] = node;
    });
}

void AddNodeToList_bn(node_bn* node, nodelist_bn* list, int index)
{
    CallApi(__func__, With(list, Read(node)), [&] {
        NeedCallersList(*list);
        if (node != nullptr) CheckHandle(node);
        if (index == -1) index = int(list->nodes.size());
        CheckIndex(*list, index, int(list->nodes.size()) + 1);
        list->nodes.insert(list->nodes.begin() + index, node);
    });
}

node_bn* RemoveNthNode_bn(nodelist_bn* list, int index)
{
    return CallApi(__func__, list, static_cast<node_bn*>(nullptr), [&] {
        NeedCallersList(*list);
        if (index == -1) index = int(list->nodes.size()) - 1;
        CheckIndex(*list, index, int(list->nodes.size()));
        node_bn* node = list->nodes[index];
        list->nodes.erase(list->nodes.begin() + index);
        return node;
    });
}

int IndexOfNodeInList_bn(const node_bn* node, const nodelist_bn* list, int start_index)
{
    return CallApi(__func__, list, -1, [&] {
        if (start_index < 0) Fail<6203>(start_index);
        const auto begin = list->nodes.begin() + std::min(size_t(start_index), list->nodes.size());
        const auto found = std::find(begin, list->nodes.end(), node);
        return found == list->nodes.end() ? -1 : int(found - list->nodes.begin());
    });
}
