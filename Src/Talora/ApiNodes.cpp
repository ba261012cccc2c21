// Interface functions: nodes and their properties.
#include <algorithm>
#include <iterator>

#include "BN/Equations/EqnRename.h"
#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "BN/Model/EnumWords.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"
#include "Talora/ApiFields.h"

using namespace talora;

namespace {

// The value of a word passed: only the words that are written are taken.
template <size_t kCount>
int EnumArgument(const char* argument, const char* word, const EnumWord (&words)[kCount])
{
    const std::string text = NarrowText(word);
    const EnumWord* const found = FindWord(words, text);
    if (found == nullptr || text != WordFor(words, found->value)) Fail<6204>(argument, text.c_str());
    return found->value;
}

}  // namespace

node_bn* NewNode_bn(const char* name, int num_states, net_bn* net)
{
    return CallApi(__func__, net, static_cast<node_bn*>(nullptr),
                   [&] { return AddNode(*net, NameArgument(name, "name"), num_states); });
}

void DeleteNode_bn(node_bn* node)
{
    CallApi(__func__, node, [&] { DeleteNode(*node); });
}

nodelist_bn* CopyNodes_bn(const nodelist_bn* nodes, net_bn* net, const char* options)
{
    return CallApi(
        __func__, With(net, EntriesOf(nodes)), static_cast<nodelist_bn*>(nullptr), [&]() -> nodelist_bn* {
            CheckHandle(nodes);
            if (nodes == nullptr) return nullptr;
            const uint32_t given = OptionsArgument(options, {"no_links", "no_tables", "dont_return_list"});
            const bool returns_list = (given & 4) == 0;
            nodelist_bn* list = returns_list ? NewNodeList(*net->env, 0) : nullptr;
            try {
                const std::vector<Node*> originals = nodes->nodes;  // may be the net's own list, which grows
                std::vector<Node*> made = CopyNodes(originals, *net, {(given & 1) != 0, (given & 2) != 0});
                if (list) list->nodes = std::move(made);
            } catch (...) {
                if (list) DeleteNodeList(list);
                throw;
            }
            return list;
        });
}

net_bn* GetNodeNet_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<net_bn*>(nullptr), [&] { return node->net; });
}

void SetNodeName_bn(node_bn* node, const char* name)
{
    CallApi(__func__, node, [&] {
        const std::string new_name = NameArgument(name, "name", true);
        const EquationsWithNames equations(*node, true);
        RenameNode(*node, new_name);
        equations.Follow(new_name.c_str());
    });
}

const char* GetNodeName_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] { return node->name.c_str(); });
}

void SetNodeTitle_bn(node_bn* node, const char* title)
{
    CallSetText(__func__, node, &Description::title, title, "change title");
}

const char* GetNodeTitle_bn(const node_bn* node)
{
    return CallGetText(__func__, node, &Description::title);
}

void SetNodeComment_bn(node_bn* node, const char* comment)
{
    CallSetText(__func__, node, &Description::comment, comment, "change comment");
}

const char* GetNodeComment_bn(const node_bn* node)
{
    return CallGetText(__func__, node, &Description::comment);
}

void SetNodeUnits_bn(node_bn* node, const char* units)
{
    CallApi(__func__, node,
            [&] { Change(*node, node->units, TextArgument(units), NO_EFFECT, "change units"); });
}

const char* GetNodeUnits_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] { return node->units.c_str(); });
}

void SetNodeAuthor_bn(node_bn* node, const char* author)
{
    CallSetText(__func__, node, &Description::author, author, "change author");
}

const char* GetNodeAuthor_bn(const node_bn* node)
{
    return CallGetText(__func__, node, &Description::author);
}

void SetNodeLastChange_bn(node_bn* node, const char* who, uint32_t when)
{
    CallApi(__func__, node, [&] { SetLastChange(*node->net, node, node->text, who, when); });
}

const char* GetNodeLastChange_bn(const node_bn* node, uint32_t* when)
{
    return CallGetLastChange(__func__, node, when);
}

void SetNodeUserData_bn(node_bn* node, void* data)
{
    CallApi(__func__, node, [&] { node->user_data = data; });
}

void* GetNodeUserData_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<void*>(nullptr), [&] { return node->user_data; });
}

void SetNodeUserField_bn(node_bn* node, const char* name, const void* value, int length, int kind)
{
    CallApi(__func__, node, [&] { SetUserField(*node->net, node, node->text, name, value, length, kind); });
}

const char* GetNodeUserField_bn(const node_bn* node, const char* name, int* length, int kind)
{
    return CallGetUserField(__func__, node, name, length, kind);
}

void GetNodeNthUserField_bn(const node_bn* node, int index, const char** name, const char** value,
                            int* length, int kind)
{
    CallNthUserField(__func__, node, index, name, value, length, kind);
}

void SetNodeKind_bn(node_bn* node, nodekind_bn kind)
{
    CallApi(__func__, node, [&] { SetKind(*node, kind); });
}

nodekind_bn GetNodeKind_bn(const node_bn* node)
{
    return CallApi(__func__, node, nodekind_bn(0), [&] { return nodekind_bn(node->kind); });
}

nodetype_bn GetNodeType_bn(const node_bn* node)
{
    return CallApi(__func__, node, nodetype_bn(0),
                   [&] { return IsDiscrete(*node) ? DISCRETE_TYPE : CONTINUOUS_TYPE; });
}

void SetNodeMeasure_bn(node_bn* node, const char* measure)
{
    CallApi(__func__, node, [&] {
        Change(*node, node->measure, Measure(EnumArgument("measure", measure, kMeasureWords)), NO_EFFECT,
               "change measure");
    });
}

const char* GetNodeMeasure_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr),
                   [&] { return WordFor(kMeasureWords, int(node->measure)); });
}

void SetNodeRelation_bn(node_bn* node, const char* relation)
{
    CallApi(__func__, node, [&] {
        Change(*node, node->relation, Relation(EnumArgument("relation", relation, kRelationWords)), NO_EFFECT,
               "change relation");
    });
}

const char* GetNodeRelation_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr),
                   [&] { return WordFor(kRelationWords, int(node->relation)); });
}

const char* GetNodeEquation_bn(const node_bn* node)
{
    return CallApi(__func__, node, static_cast<const char*>(nullptr), [&] { return node->equation.c_str(); });
}

int GetNodeLabel_bn(const node_bn* node, const char* options, char* label, int max_chars)
{
    return CallApi(__func__, node, -1, [&] {
        return WriteLabel(node->text.title.empty() ? node->name : node->text.title, options, label,
                          max_chars);
    });
}
