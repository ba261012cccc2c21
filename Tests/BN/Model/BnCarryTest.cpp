// Tables follow the parents and states of their nodes, and an edit that fails leaves the net as it was.
#include "BN/Model/BnCarry.h"

#include <algorithm>
#include <functional>
#include <random>

#include "BN/Files/BnPrintFile.h"
#include "BN/Model/BnProbs.h"
#include "Support/TestNet.h"

namespace talora {
namespace {

// A node's tables and what gives them their shape, before an edit.
struct Before {
    std::vector<Node*> parents;
    std::vector<int> counts;  // states of the parents
    int num_states;
    NodeTables tables;

    explicit Before(const Node& node) : num_states(NumStates(node)), tables(node.tables)
    {
        for (const Link& link : node.links) {
            parents.push_back(link.parent);
            counts.push_back(NumStates(*link.parent));
        }
    }
};

// What an edit did: the states of one node, or one parent put in the place of another.
struct Edit {
    const Node* changed = nullptr;
    std::vector<int> old_state;  // of the states of `changed`
    bool removes_state = false;
    float fill = MissingProb();
    const Node* child = nullptr;       // of the switched link:
    const Node* new_parent = nullptr;  // goes on in the place of old_parent
    const Node* old_parent = nullptr;
};

// The old row that a row continues, found parent by parent; -1 if it concerns a new state.
int64_t OldRow(const Node& node, const Before& before, const Edit& edit, int64_t row)
{
    std::vector<int> old_states(before.parents.size(), 0);  // of a parent that went: its first
    for (size_t i = node.links.size(); i-- > 0;) {
        const Node* parent = node.links[i].parent;
        int state = int(row % NumStates(*parent));
        row /= NumStates(*parent);
        if (parent == edit.changed) state = edit.old_state[state];
        if (state < 0) return -1;
        const Node* old = &node == edit.child && parent == edit.new_parent ? edit.old_parent : parent;
        const auto found = std::find(before.parents.begin(), before.parents.end(), old);
        if (found != before.parents.end()) old_states[found - before.parents.begin()] = state;
    }
    int64_t old_row = 0;
    for (size_t i = 0; i < old_states.size(); ++i) old_row = old_row * before.counts[i] + old_states[i];
    return old_row;
}

std::vector<float> ExpectedRow(const Node& node, const Before& before, const Edit& edit, int64_t old_row)
{
    const int num_states = NumStates(node);
    std::vector<float> row(num_states, edit.fill);
    if (old_row < 0) return row;
    const float* old = before.tables.probs.data() + old_row * before.num_states;
    double sum = 0;
    for (int state = 0; state < num_states; ++state) {
        const int old_state = &node == edit.changed ? edit.old_state[state] : state;
        if (old_state >= 0) row[state] = old[old_state];
        sum += row[state];
    }
    if (&node != edit.changed || !edit.removes_state || CheckProbs(old, before.num_states) != 0) return row;
    for (float& entry : row) entry = sum > 0 ? float(entry / sum) : MissingProb();
    return row;
}

int ExpectedFuncState(const Node& node, const Edit& edit, int old)
{
    if (&node != edit.changed || old < 0) return old;
    const auto found = std::find(edit.old_state.begin(), edit.old_state.end(), old);
    return found == edit.old_state.end() ? int(UNDEF_STATE) : int(found - edit.old_state.begin());
}

void ExpectCarried(const Node& node, const Before& before, const Edit& edit)
{
    ASSERT_EQ(double(node.tables.probs.size()), TableEntries(node));
    const int64_t num_rows = int64_t(NumRows(node));
    const int num_states = NumStates(node);
    for (int64_t row = 0; row < num_rows; ++row) {
        const int64_t old = OldRow(node, before, edit, row);
        const float* probs = node.tables.probs.data() + row * num_states;
        ASSERT_EQ(std::vector<float>(probs, probs + num_states), ExpectedRow(node, before, edit, old)) << row;
        const NodeTables& now = node.tables;
        const NodeTables& then = before.tables;
        ASSERT_EQ(now.func_states[row],
                  old < 0 ? int(UNDEF_STATE) : ExpectedFuncState(node, edit, then.func_states[old]));
        ASSERT_EQ(now.func_reals[row], old < 0 ? UndefDbl() : then.func_reals[old]);
        ASSERT_EQ(now.experience[row], old < 0 ? 0 : then.experience[old]);
    }
}

class BnCarryTest : public ModelTest {
protected:
    int Below(int count) { return int(random_() % unsigned(count)); }

    // Full tables of every sort, all entries different.
    void FillTables(Node& node)
    {
        const size_t rows = size_t(NumRows(node)), num_states = size_t(NumStates(node));
        node.tables.probs.resize(rows * num_states);
        node.tables.func_states.resize(rows);
        node.tables.func_reals.resize(rows);
        node.tables.experience.resize(rows);
        for (size_t row = 0; row < rows; ++row) {
            float sum = 0;
            for (size_t i = 0; i < num_states; ++i)
                sum += node.tables.probs[row * num_states + i] = float(1 + Below(1000));
            for (size_t i = 0; i < num_states; ++i) node.tables.probs[row * num_states + i] /= sum;
            node.tables.func_states[row] = Below(8) == 0 ? int(UNDEF_STATE) : Below(int(num_states));
            node.tables.func_reals[row] = Below(1000000);
            node.tables.experience[row] = Below(1000000);
        }
    }

    Node& Any() { return *net_->nodes.nodes[Below(int(net_->nodes.nodes.size()))]; }

    Edit EditStates(Node& node)
    {
        const int count = NumStates(node);
        Edit edit;
        edit.changed = &node;
        for (int state = 0; state < count; ++state) edit.old_state.push_back(state);
        switch (Below(3)) {
            case 0: {
                const int first = Below(count + 1), added = 1 + Below(2);
                edit.old_state.insert(edit.old_state.begin() + first, added, -1);
                edit.fill = Below(2) ? 0.0f : MissingProb();
                AddStates(node, first, {}, added, edit.fill == 0 ? 0 : -1);
                break;
            }
            case 1:
                if (count == 1) break;
                edit.removes_state = true;
                edit.old_state.erase(edit.old_state.begin() + Below(count));
                RemoveState(node, [&] {
                    for (int state = 0; state < count - 1; ++state)
                        if (edit.old_state[state] != state) return state;
                    return count - 1;
                }());
                break;
            default:
                std::shuffle(edit.old_state.begin(), edit.old_state.end(), random_);
                ReorderStates(node, edit.old_state);
        }
        return edit;
    }

    Edit EditLinks(Node& child)
    {
        Edit edit;
        const int num_parents = int(child.links.size());
        Node& other = Any();
        const bool can_link = FindParent(child, &other) < 0 && &other != &child &&
                              !IsAncestor(*net_, child, other) && TableEntries(child) < 2000;
        const int index = num_parents > 0 ? Below(num_parents) : 0;
        switch (Below(4)) {
            case 0:
                if (can_link) AddLink(other, child);
                break;
            case 1:
                if (num_parents > 0) DeleteLink(child, index);
                break;
            case 2:
                if (num_parents == 0 || !can_link) break;
                if (NumStates(other) == NumStates(*child.links[index].parent)) {
                    edit.child = &child;
                    edit.new_parent = &other;
                    edit.old_parent = child.links[index].parent;
                }
                SwitchParent(child, index, &other);
                break;
            default:
                std::vector<int> order;
                for (int i = 0; i < num_parents; ++i) order.push_back(i);
                std::shuffle(order.begin(), order.end(), random_);
                std::vector<Link> links;
                for (const int i : order) links.push_back(child.links[i]);
                ReplaceParents(child, links, order, "reorder parents");
        }
        return edit;
    }

    std::mt19937 random_{20261};
};

TEST_F(BnCarryTest, RandomEditsAgainstEntryByEntry)
{
    Make("A B:3 C D:4; A B -> C; A C -> D; D:4 -> E:3; F:5 G:2 H:3");
    for (Node* node : net_->nodes.nodes) FillTables(*node);
    for (int step = 0; step < 1500; ++step) {
        SCOPED_TRACE(step);
        std::vector<Before> before;
        for (const Node* node : net_->nodes.nodes) before.emplace_back(*node);
        Node& node = Any();
        const bool too_large = NumStates(node) > 6;
        const Edit edit = Below(2) == 0 && !too_large ? EditStates(node) : EditLinks(node);
        for (size_t i = 0; i < before.size(); ++i) ExpectCarried(*net_->nodes.nodes[i], before[i], edit);
        if (HasFatalFailure()) return;
        ValidateNet(*net_);
        if (step % 100 == 99)
            for (Node* each : net_->nodes.nodes) FillTables(*each);
    }
}

// Each edit is tried with no memory left, and some that fail anyway; the net is the same text afterwards.
TEST_F(BnCarryTest, FailedEditsChangeNothing)
{
    Make("P:3 Q -> X:40; R S:2; X:40 -> Y; Huge:200000000");
    for (const char* name : {"P", "Q", "X", "R", "S", "Y"}) FillTables((*this)[name]);
    Node &p = (*this)["P"], &x = (*this)["X"], &y = (*this)["Y"], &r = (*this)["R"], &s = (*this)["S"];
    std::vector<int> order(40);
    for (int i = 0; i < 40; ++i) order[i] = 39 - i;
    const std::vector<float> half(2, 0.5f);
    const struct {
        const char* label;
        std::function<void()> edit;
        int error;  // with all memory; 0 if it then succeeds
    } cases[] = {
        {"table too large", [&] { AddLink((*this)["Huge"], y); }, 3615},
        {"cycle", [&] { AddLink(y, x); }, 6101},
        {"cycle by switching", [&] { SwitchParent(x, 1, &y); }, 6101},
        {"parent twice", [&] { SwitchParent(x, 1, &p); }, 6102},
        {"names repeated",
         [&] {
             AddStates(x, -1, {"a", "a"}, 2, 0);
         },
         6132},
        {"add link", [&] { AddLink(r, x); }, 0},
        {"switch parent", [&] { SwitchParent(x, 0, &s); }, 0},
        {"reorder states", [&] { ReorderStates(x, order); }, 0},
        {"add states", [&] { AddStates(x, -1, {}, 9, 0); }, 0},
        {"remove state", [&] { RemoveState(x, 3); }, 0},
        {"copy nodes",
         [&] {
             CopyNodes({&x, &y}, *net_, {});
         },
         0},
        {"copy net", [&] { CopyNet(*net_, "Copy", *env_, {}); }, 0},
        {"remove link", [&] { DeleteLink(y, 0); }, 0},
        {"delete tables", [&] { DeleteTables(y); }, 0},
        {"new table", [&] { SetProbs(y, nullptr, half.data()); }, 0},
        {"new experience", [&] { SetExperience(y, nullptr, 3); }, 0},
        {"delete parent", [&] { DeleteNode(s); }, 0},
    };
    const double limit = MemoryLimit();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        const std::string text = PrintNet(*net_);
        SetMemoryLimit(double(MemoryInUse()));
        const int starved = ErrorOf(c.edit);
        SetMemoryLimit(limit);
        EXPECT_TRUE(starved == 0 || PrintNet(*net_) == text);
        EXPECT_EQ(starved == 0, std::string(c.label) == "delete tables");
        ValidateNet(*net_);
        if (starved == 0) continue;
        EXPECT_EQ(ErrorOf(c.edit), c.error);
        EXPECT_TRUE(c.error == 0 || PrintNet(*net_) == text);
        ValidateNet(*net_);
    }
}

}  // namespace
}  // namespace talora
