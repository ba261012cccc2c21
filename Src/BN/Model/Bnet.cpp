// Nets and nodes as records: making, deleting, looking up, checking.
#include "BN/Model/Bnet.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <iterator>

#include "BN/Model/BnElimOrder.h"
#include "BN/Model/BnProbs.h"
#include "Basic/Error.h"
#include "Basic/Names.h"
#include "Basic/Steps.h"

namespace talora {

namespace {

HandlePool<net_bn, NET_TYPE>& Nets()
{
    static auto* pool = new HandlePool<net_bn, NET_TYPE>;
    return *pool;
}

HandlePool<nodelist_bn, NODELIST_TYPE>& Lists()
{
    static auto* pool = new HandlePool<nodelist_bn, NODELIST_TYPE>;
    return *pool;
}

HandlePool<node_bn, NODE_TYPE>& Nodes()
{
    static auto* pool = new HandlePool<node_bn, NODE_TYPE>;
    return *pool;
}

const std::string kNoText;

const StateText* TextOf(const Node& node, int state)
{
    return state >= 0 && state < int(node.states.texts.size()) ? &node.states.texts[state] : nullptr;
}

// Rules of the counter of unique labels.
constexpr uint64_t kFirstLabel = 100;
constexpr uint64_t kLabelWarning = UINT64_C(999999999990000000);
constexpr uint64_t kLabelEnd = UINT64_C(999999999999999000);

}  // namespace

// ---- Questions about a node ----

bool IsDelayed(const Link& link)
{
    // A digit behind the "e" of a number does not count: 0e5 is zero.
    bool in_exponent = false;
    for (const char c : link.delay) {
        if (c == 'e' || c == 'E') in_exponent = true;
        if (c == ',') in_exponent = false;
        if (!in_exponent && c >= '1' && c <= '9') return true;
    }
    return false;
}

const std::string& StateName(const Node& node, int state)
{
    const StateText* text = TextOf(node, state);
    return text ? text->name : kNoText;
}

const std::string& StateTitle(const Node& node, int state)
{
    const StateText* text = TextOf(node, state);
    return text ? text->title : kNoText;
}

const std::string& StateComment(const Node& node, int state)
{
    const StateText* text = TextOf(node, state);
    return text ? text->comment : kNoText;
}

bool HasStateNames(const Node& node)
{
    return std::any_of(node.states.texts.begin(), node.states.texts.end(),
                       [](const StateText& text) { return !text.name.empty(); });
}

int FindState(const Node& node, std::string_view name)
{
    if (name.empty()) return UNDEF_STATE;
    CountSteps(node.states.texts.size());
    for (size_t state = 0; state < node.states.texts.size(); ++state)
        if (node.states.texts[state].name == name) return int(state);
    return UNDEF_STATE;
}

std::string StateWord(const Node& node, int state)
{
    const std::string& name = StateName(node, state);
    return name.empty() ? "#" + std::to_string(state) : name;
}

double StateValue(const Node& node, int state)
{
    const std::vector<double>& levels = node.states.levels;
    if (IsDiscrete(node)) return state >= 0 && state < int(levels.size()) ? levels[state] : UndefDbl();
    if (state < 0 || state + 1 >= int(levels.size())) return UndefDbl();
    const double low = levels[state], high = levels[state + 1];
    const bool low_ends = std::abs(low) < InfinityDbl(), high_ends = std::abs(high) < InfinityDbl();
    if (low_ends && high_ends) return low + (high - low) / 2;
    return low_ends ? low : high_ends ? high : UndefDbl();
}

int StateOfValue(const Node& node, double value)
{
    const std::vector<double>& levels = node.states.levels;
    const int num_states = NumStates(node);
    if (IsUndef(value)) return UNDEF_STATE;  // though it is a number, and may be a level that was left open
    if (IsDiscrete(node)) {
        const auto found = std::find(levels.begin(), levels.end(), value);
        return found == levels.end() ? int(UNDEF_STATE) : int(found - levels.begin());
    }
    if (levels.size() != size_t(num_states) + 1) return UNDEF_STATE;
    // An interval holds its first threshold; the last one holds both of its ends.  The thresholds are in
    // order (Knuth 1973, section 6.2.1): the interval is the one before the first threshold beyond the value.
    const bool rising = levels.front() <= levels.back();
    const auto beyond = rising ? std::upper_bound(levels.begin(), levels.end(), value)
                               : std::upper_bound(levels.begin(), levels.end(), value, std::greater<>());
    if (beyond == levels.begin()) return UNDEF_STATE;
    if (beyond != levels.end()) return int(beyond - levels.begin()) - 1;
    return value == levels.back() ? num_states - 1 : int(UNDEF_STATE);
}

bool IsInRange(const Node& node, double value)
{
    const std::vector<double>& levels = node.states.levels;
    return levels.size() != 2 ||
           (value >= std::min(levels[0], levels[1]) && value <= std::max(levels[0], levels[1]));
}

bool HoldsValue(const Node& node, int state, double value)
{
    const std::vector<double>& levels = node.states.levels;
    if (!IsDiscrete(node)) return StateOfValue(node, value) == state;
    return !IsUndef(value) && state >= 0 && state < int(levels.size()) && levels[state] == value;
}

const char* KindTerm(int kind)
{
    static constexpr const char* kTerms[] = {"documentation", "nature",       "constant", "decision",
                                             "utility",       "disconnected", "adversary"};
    return kind >= 0 && kind < NUM_NODE_KINDS ? kTerms[kind] : kTerms[0];
}

// ---- Looking up ----

Node* FindNode(const Net& net, std::string_view name)
{
    const auto found = net.node_index.find(name);
    return found == net.node_index.end() ? nullptr : found->second;
}

const NodeSet* FindNodeSet(const Net& net, std::string_view name)
{
    for (const NodeSet& set : net.node_sets)
        if (set.name == name) return &set;
    return nullptr;
}

int FindParent(const Node& child, const Node* parent)
{
    for (size_t i = 0; i < child.links.size(); ++i)
        if (child.links[i].parent == parent) return int(i);
    return -1;
}

uint64_t NewLabel(Net& net)
{
    if (net.label_counter == kLabelWarning) Warn<6100>();
    if (net.label_counter >= kLabelEnd) net.label_counter = kFirstLabel;
    return net.label_counter++;
}

void CheckRanks(const Node& parent, const Node& child) noexcept
{
    if (parent.rank >= child.rank) child.net->has_ranks = false;
}

bool IsInSet(NodeSet& set, const Node& node)
{
    if (!set.is_indexed) {
        set.members.clear();
        set.members.insert(set.nodes.begin(), set.nodes.end());
        set.is_indexed = true;
    }
    return set.members.count(&node) != 0;
}

namespace {

// Ranks as the nodes stand in an order with parents first.
void MakeRanks(Net& net)
{
    for (Node* node : TopologicalOrder(net)) node->rank = ++net.last_rank;
    net.has_ranks = true;
    net.cycle_work = 0;
}

// From both ends at once, each time at the end where less work has been done: one of the nodes often has few
// relatives on its side of a large net.
bool WalksTo(Net& net, const Node& a, const Node& b, size_t* work)
{
    const uint64_t above = NewLabel(net), below = NewLabel(net);  // reached from b upwards, from a downwards
    std::vector<const Node*> up = {&b}, down = {&a};
    size_t up_work = 0, down_work = 0;
    bool is_reached = false;
    while (!up.empty() && !down.empty() && !is_reached) {
        const Node *lower = up.back(), *upper = down.back();
        const size_t next_up = up_work + 1 + lower->links.size();
        const size_t next_down = down_work + 1 + upper->children.nodes.size();
        if (next_up <= next_down) {
            up.pop_back();
            up_work = next_up;
            for (const Link& link : lower->links) {
                if (IsDelayed(link) || link.parent->stamp == above) continue;
                is_reached |= link.parent == &a || link.parent->stamp == below;
                link.parent->stamp = above;
                up.push_back(link.parent);
            }
        } else {
            down.pop_back();
            down_work = next_down;
            for (Node* child : upper->children.nodes) {
                if (child->stamp == below || IsDelayed(child->links[FindParent(*child, upper)])) continue;
                is_reached |= child == &b || child->stamp == above;
                child->stamp = below;
                down.push_back(child);
            }
        }
    }
    *work += up_work + down_work;
    return is_reached;
}

}  // namespace

// While there are ranks, only a node of a greater rank can be reached.  Without them the links are walked
// along, until as much was walked as ranking all nodes takes.
bool IsAncestor(Net& net, const Node& a, const Node& b)
{
    if (&a == &b) return false;
    if (!net.has_ranks && net.cycle_work > net.nodes.nodes.size()) MakeRanks(net);
    if (net.has_ranks && a.rank >= b.rank) return false;
    return WalksTo(net, a, b, &net.cycle_work);
}

std::vector<Node*> TopologicalOrder(const Net& net)
{
    std::vector<int> waiting(net.nodes.nodes.size());
    std::vector<Node*> order;
    order.reserve(net.nodes.nodes.size());
    for (Node* node : net.nodes.nodes) {
        waiting[node->index] = int(std::count_if(node->links.begin(), node->links.end(),
                                                 [](const Link& link) { return !IsDelayed(link); }));
        if (waiting[node->index] == 0) order.push_back(node);
    }
    for (size_t done = 0; done < order.size(); ++done)
        for (Node* child : order[done]->children.nodes) {
            const int link = FindParent(*child, order[done]);
            if (!IsDelayed(child->links[link]) && --waiting[child->index] == 0) order.push_back(child);
        }
    for (Node* node : net.nodes.nodes)
        if (waiting[node->index] > 0) order.push_back(node);
    return order;
}

// ---- Validating ----

namespace {

void ValidateLinks(const Node& node)
{
    TALORA_CHECK(node.parents.nodes.size() == node.links.size());
    for (size_t i = 0; i < node.links.size(); ++i) {
        const Node* parent = node.links[i].parent;
        TALORA_CHECK(IsLive(parent, NODE_TYPE) && parent->net == node.net);
        TALORA_CHECK(node.parents.nodes[i] == parent);
        TALORA_CHECK(FindParent(node, parent) == int(i));
    }
    for (const Node* child : node.children.nodes)
        TALORA_CHECK(IsLive(child, NODE_TYPE) && FindParent(*child, &node) >= 0);
}

void ValidateTables(const Node& node)
{
    const double rows = NumRows(node);
    const NodeTables& tables = node.tables;
    TALORA_CHECK(tables.probs.empty() || double(tables.probs.size()) == TableEntries(node));
    TALORA_CHECK(tables.func_states.empty() || double(tables.func_states.size()) == rows);
    TALORA_CHECK(tables.func_reals.empty() || double(tables.func_reals.size()) == rows);
    TALORA_CHECK(tables.experience.empty() || double(tables.experience.size()) == rows);
}

void ValidateStates(const Node& node)
{
    const int num_states = NumStates(node), num_levels = int(node.states.levels.size());
    TALORA_CHECK(num_states >= 0 && int64_t(node.states.texts.size()) <= num_states);
    TALORA_CHECK(num_levels == 0 || num_levels == num_states + (IsDiscrete(node) ? 0 : 1) ||
                 (num_states == 0 && num_levels == 2));
    TALORA_CHECK(node.finding.state < std::max(1, num_states));
    TALORA_CHECK(node.finding.likelihood.empty() || int(node.finding.likelihood.size()) == num_states);
    TALORA_CHECK(node.finding.product.empty() || int(node.finding.product.size()) == num_states);
}

// Links without delay form no cycle: in an order with parents first, each parent comes before its children.
void ValidateNoCycle(const Net& net)
{
    std::vector<size_t> place(net.nodes.nodes.size());
    const std::vector<Node*> order = TopologicalOrder(net);
    TALORA_CHECK(order.size() == place.size());
    for (size_t i = 0; i < order.size(); ++i) place[order[i]->index] = i;
    for (const Node* node : order)
        for (const Link& link : node->links)
            TALORA_CHECK(IsDelayed(link) || place[link.parent->index] < place[node->index]);
}

void ValidateNode(const Node& node)
{
    TALORA_CHECK(IsLive(&node, NODE_TYPE));
    TALORA_CHECK(CheckNarrowName(node.name, true, nullptr) == 0);
    TALORA_CHECK(FindNode(*node.net, node.name) == &node);
    ValidateStates(node);
    ValidateLinks(node);
    ValidateTables(node);
}

}  // namespace

void ValidateNet(Net& net)
{
    TALORA_CHECK(net.node_index.size() == net.nodes.nodes.size());
    size_t num_links = 0, num_children = 0;
    for (size_t i = 0; i < net.nodes.nodes.size(); ++i) {
        const Node* node = net.nodes.nodes[i];
        TALORA_CHECK(node != nullptr && node->net == &net && node->index == int(i));
        ValidateNode(*node);
        num_links += node->links.size();
        num_children += node->children.nodes.size();
    }
    TALORA_CHECK(num_links == num_children);
    ValidateNoCycle(net);
    for (const NodeSet& set : net.node_sets)
        for (const Node* node : set.nodes) TALORA_CHECK(IsLive(node, NODE_TYPE) && node->net == &net);
    CheckElimOrder(net);
}

// ---- Making and deleting records ----

namespace {

void PrepareOwnedList(NodeList& list, environ_vx* env, RecursiveLock* lock)
{
    list.env = env;
    list.owned = true;
    list.header.SetLock(lock);
    list.header.SetTag(NODELIST_TYPE);
}

}  // namespace

Net* NewNet(environ_vx& env, std::string_view name, bool is_listed)
{
    RecursiveLock* lock = NewObjectLock();
    Net* net = nullptr;
    try {
        net = Nets().New(lock);
        net->name = name;
        net->env = &env;
        net->undo = std::make_unique<UndoList>();
        net->undo->SkipCall();
        PrepareOwnedList(net->nodes, &env, lock);
        PrepareOwnedList(net->elim_order, &env, lock);
        if (CallLocks* call = ThisThread().locks) call->Adopt(lock);
        if (!is_listed) return net;
        std::lock_guard guard(env.mutex);
        env.nets.push_back(net);  // from here on others see it
    } catch (...) {
        if (net) Nets().Release(net);
        ReleaseObjectLock(lock);
        throw;
    }
    return net;
}

void DeleteNet(Net* net) noexcept
{
    environ_vx& env = *net->env;
    {
        std::lock_guard guard(env.mutex);
        env.nets.erase(std::remove(env.nets.begin(), env.nets.end(), net), env.nets.end());
    }
    while (!net->dependents.empty()) net->dependents.back().delete_object(net->dependents.back().object);
    net->undo.reset();  // its records own nodes
    net->compiled.reset();
    net->queries.reset();
    net->config_search.reset();
    for (Node* node : net->nodes.nodes) ReleaseNode(node);
    RecursiveLock* lock = net->header.Lock();
    net->nodes.header.SetTag(DELETED_TYPE);
    net->elim_order.header.SetTag(DELETED_TYPE);
    Nets().Release(net);
    KeepReadable(net->nodes.header);
    KeepReadable(net->elim_order.header);
    ReleaseObjectLock(lock);
}

Node* NewNodeRecord(Net& net)
{
    Node* node = Nodes().New(net.header.Lock());
    static std::atomic<uint64_t> last_id{0};
    node->net = &net;
    node->id = ++last_id;
    PrepareOwnedList(node->parents, net.env, net.header.Lock());
    PrepareOwnedList(node->children, net.env, net.header.Lock());
    return node;
}

void ReleaseNode(Node* node) noexcept
{
    for (const NetDependent& dependent : node->net->dependents)
        if (dependent.forget_node) dependent.forget_node(dependent.object, node);
    node->parents.header.SetTag(DELETED_TYPE);
    node->children.header.SetTag(DELETED_TYPE);
    Nodes().Release(node);
    KeepReadable(node->parents.header);
    KeepReadable(node->children.header);
}

void Enlist(Net& net, const NetDependent& dependent)
{
    net.dependents.push_back(dependent);
}

void Withdraw(Net& net, const void* object) noexcept
{
    std::erase_if(net.dependents, [object](const NetDependent& one) { return one.object == object; });
}

NodeList* NewNodeList(environ_vx& env, size_t length)
{
    NodeList* list = Lists().New(nullptr);
    try {
        list->env = &env;
        list->nodes.resize(length);
        std::lock_guard guard(env.mutex);
        env.lists.push_back(list);
    } catch (...) {
        Lists().Release(list);
        throw;
    }
    return list;
}

void DeleteNodeList(NodeList* list) noexcept
{
    environ_vx& env = *list->env;
    {
        std::lock_guard guard(env.mutex);
        // Lists are mostly deleted soon after they are made.
        const auto found = std::find(env.lists.rbegin(), env.lists.rend(), list);
        if (found != env.lists.rend()) env.lists.erase(std::next(found).base());
    }
    Lists().Release(list);
}

OwnedList NewOwnedList(Net& net)
{
    OwnedList list(Lists().New(net.header.Lock()));
    list->env = net.env;
    list->owned = true;
    return list;
}

void OwnedListDeleter::operator()(NodeList* list) const noexcept
{
    Lists().Release(list);
}

}  // namespace talora
