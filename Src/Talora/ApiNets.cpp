// Interface functions: nets, their properties, and node sets.
#include <algorithm>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"
#include "Talora/ApiFields.h"

using namespace talora;

net_bn* NewNet_bn(const char* name, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<net_bn*>(nullptr), [&](environ_vx& e) {
        CheckLocal(e);
        return NewNet(e, NameArgument(name, "name"));
    });
}

void DeleteNet_bn(net_bn* net)
{
    CallApi(__func__, net, [&] {
        if (net != nullptr) DeleteNet(net);
    });
}

net_bn* CopyNet_bn(const net_bn* net, const char* new_name, environ_vx* env, const char* options)
{
    return CallApi(__func__, With(net, ProcessWide{env != nullptr}), static_cast<net_bn*>(nullptr), [&] {
        if (env != nullptr) CheckHandle(env);
        const uint32_t given =
            OptionsArgument(options, {"no_nodes", "no_links", "no_tables", "no_visual", "no_window"});
        const CopyNetOptions copy = {(given & 1) != 0, (given & 2) != 0, (given & 4) != 0, (given & 8) != 0,
                                     (given & 16) != 0};
        return CopyNet(*net, NameArgument(new_name, "new_name"), env ? *env : *net->env, copy);
    });
}

net_bn* GetNthNet_bn(int index, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<net_bn*>(nullptr), [&](environ_vx& e) -> net_bn* {
        if (index < 0) Fail<6190>(index);
        std::lock_guard guard(e.mutex);
        return index < int(e.nets.size()) ? e.nets[index] : nullptr;
    });
}

net_bn* GetNetNamed_bn(const char* name, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<net_bn*>(nullptr), [&](environ_vx& e) -> net_bn* {
        const std::string text = NarrowText(name);
        std::lock_guard guard(e.mutex);
        for (net_bn* net : e.nets)
            if (net->name == text) return net;
        return nullptr;
    });
}

environ_vx* GetNetEnviron_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<environ_vx*>(nullptr), [&] { return net->env; });
}

void SetNetName_bn(net_bn* net, const char* name)
{
    CallApi(__func__, net,
            [&] { Change(*net, net->name, NameArgument(name, "name"), NO_EFFECT, "rename net"); });
}

const char* GetNetName_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr), [&] { return net->name.c_str(); });
}

void SetNetTitle_bn(net_bn* net, const char* title)
{
    CallSetText(__func__, net, &Description::title, title, "change title");
}

const char* GetNetTitle_bn(const net_bn* net)
{
    return CallGetText(__func__, net, &Description::title);
}

void SetNetComment_bn(net_bn* net, const char* comment)
{
    CallSetText(__func__, net, &Description::comment, comment, "change comment");
}

const char* GetNetComment_bn(const net_bn* net)
{
    return CallGetText(__func__, net, &Description::comment);
}

void SetNetAuthor_bn(net_bn* net, const char* author)
{
    CallSetText(__func__, net, &Description::author, author, "change author");
}

const char* GetNetAuthor_bn(const net_bn* net)
{
    return CallGetText(__func__, net, &Description::author);
}

void SetNetLastChange_bn(net_bn* net, const char* who, uint32_t when)
{
    CallApi(__func__, net, [&] { SetLastChange(*net, nullptr, net->text, who, when); });
}

const char* GetNetLastChange_bn(const net_bn* net, uint32_t* when)
{
    return CallGetLastChange(__func__, net, when);
}

void SetNetUserData_bn(net_bn* net, void* data)
{
    CallApi(__func__, net, [&] { net->user_data = data; });
}

void* GetNetUserData_bn(const net_bn* net)
{
    return CallApi(__func__, net, static_cast<void*>(nullptr), [&] { return net->user_data; });
}

void SetNetUserField_bn(net_bn* net, const char* name, const void* value, int length, int kind)
{
    CallApi(__func__, net, [&] { SetUserField(*net, nullptr, net->text, name, value, length, kind); });
}

const char* GetNetUserField_bn(const net_bn* net, const char* name, int* length, int kind)
{
    return CallGetUserField(__func__, net, name, length, kind);
}

void GetNetNthUserField_bn(const net_bn* net, int index, const char** name, const char** value, int* length,
                           int kind)
{
    CallNthUserField(__func__, net, index, name, value, length, kind);
}

void SetNetAutoCompile_bn(net_bn* net, bool_vx auto_compile)
{
    CallApi(__func__, net, [&] {
        Change(*net, net->auto_compile, auto_compile != 0, NO_EFFECT, "change automatic compiling");
    });
}

bool_vx GetNetAutoCompile_bn(const net_bn* net)
{
    return CallApi(__func__, net, 0, [&] { return net->auto_compile; });
}

void SetNetNumDimensions_bn(net_bn* net, int num_dimensions)
{
    CallApi(__func__, net, [&] {
        if (num_dimensions < 0 || num_dimensions > 100) Fail<6191>(num_dimensions, 0, 100);
        Change(*net, net->num_dimensions, num_dimensions, NO_EFFECT, "change number of time dimensions");
    });
}

int GetNetNumDimensions_bn(const net_bn* net)
{
    return CallApi(__func__, net, -1, [&] { return net->num_dimensions; });
}

const nodelist_bn* GetNetNodes2_bn(const net_bn* net, const char* options)
{
    return CallApi(__func__, net, static_cast<const nodelist_bn*>(nullptr), [&] {
        CheckNoOptions(options);
        return &net->nodes;
    });
}

node_bn* GetNodeNamed_bn(const char* name, const net_bn* net)
{
    return CallApi(__func__, net, static_cast<node_bn*>(nullptr), [&] {
        if (name == nullptr && CheckingLevel() >= CHECK_HANDLES) Fail<5114>();
        return FindNode(*net, NarrowText(name));
    });
}

// ---- Node sets ----

void AddNodeToNodeset_bn(node_bn* node, const char* nodeset)
{
    CallApi(__func__, node, [&] { AddToNodeSet(*node, NameArgument(nodeset, "nodeset")); });
}

void RemoveNodeFromNodeset_bn(node_bn* node, const char* nodeset)
{
    CallApi(__func__, node, [&] { RemoveFromNodeSet(*node, NameArgument(nodeset, "nodeset")); });
}

bool_vx IsNodeInNodeset_bn(const node_bn* node, const char* nodeset)
{
    return CallApi(__func__, node, 0, [&] {
        const NodeSet* set = FindNodeSet(*node->net, NarrowText(nodeset));
        return set != nullptr && std::find(set->nodes.begin(), set->nodes.end(), node) != set->nodes.end();
    });
}

void NewNodeset_bn(const char* nodeset, net_bn* net)
{
    CallApi(__func__, net, [&] { NewNodeSet(*net, NameArgument(nodeset, "nodeset")); });
}

void DeleteNodeset_bn(const char* nodeset, net_bn* net)
{
    CallApi(__func__, net, [&] { DeleteNodeSet(*net, NameArgument(nodeset, "nodeset")); });
}

void RenameNodeset_bn(const char* nodeset, const char* new_name, net_bn* net)
{
    CallApi(__func__, net, [&] {
        RenameNodeSet(*net, NameArgument(nodeset, "nodeset"), NameArgument(new_name, "new_name"));
    });
}

const char* GetNthNodeset_bn(const net_bn* net, int index)
{
    return CallApi(__func__, net, static_cast<const char*>(nullptr), [&]() -> const char* {
        if (index < 0) Fail<6190>(index);
        return index < int(net->node_sets.size()) ? net->node_sets[index].name.c_str() : nullptr;
    });
}

nodelist_bn* GetNodesetNodes_bn(const char* nodeset, const net_bn* net)
{
    return CallApi(__func__, net, static_cast<nodelist_bn*>(nullptr), [&] {
        const std::string name = NameArgument(nodeset, "nodeset");
        const NodeSet* set = FindNodeSet(*net, name);
        if (set == nullptr) Fail<6170>(name.c_str(), net->name.c_str());
        nodelist_bn* list = NewNodeList(*net->env, 0);
        list->nodes = set->nodes;
        return list;
    });
}
