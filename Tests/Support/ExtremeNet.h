// Random nets built through the setters of the interface, with names, texts and numbers from the edges of
// what each field may hold, and the comparison of two nets field by field.
//
// A setter that refuses what it gets leaves the net as it was, so nothing here needs to know which may be
// refused.
#pragma once

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "BN/Model/Bnet.h"
#include "Talora.h"

namespace talora {

class ExtremeNet {
public:
    ExtremeNet(environ_vx* env, unsigned seed) : random_(seed), env_(env), net_(NewNet_bn("Extreme", env)) {}

    // A net of a few nodes after about so many random calls.
    net_bn* Build(int num_calls)
    {
        while (LengthNodeList_bn(GetNetNodes2_bn(net_, nullptr)) < 2) AddNode();
        for (int i = 0; i < num_calls; ++i) Call();
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        return net_;
    }

    int Below(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

    const char* Name()
    {
        static constexpr const char* kNames[] = {"A",
                                                 "B",
                                                 "node",
                                                 "param",
                                                 "define",
                                                 "TRUE",
                                                 "undef",
                                                 "imposs",
                                                 "INFINITY",
                                                 "NATURE",
                                                 "kind",
                                                 "probs",
                                                 "title",
                                                 "NodeSet",
                                                 "user",
                                                 "visual",
                                                 "e5",
                                                 "_",
                                                 "inf",
                                                 "nan",
                                                 "IDnum",
                                                 "bnet",
                                                 "states",
                                                 "any",
                                                 "uniform",
                                                 "NumCases",
                                                 "not",
                                                 "x1",
                                                 "a23456789012345678901234567890",
                                                 "Talora_original"};
        return kNames[Below(std::size(kNames))];
    }
    std::string Text()
    {
        static const std::string kTexts[] = {"",
                                             "a",
                                             "12",
                                             "-3.5e7",
                                             "#1",
                                             "@undef",
                                             "\"quoted\" \\",
                                             "ends in \\",
                                             "two\nlines\r\nthree\rfour",
                                             "caf\xC3\xA9 \xE2\x82\xAC",
                                             "/* c */ // d",
                                             "};",
                                             "(a, b)",
                                             "\x01\x1F\x7F\t\v\f",
                                             "*",
                                             " blanks ",
                                             "{1;0}",
                                             std::string(3000, 'x'),
                                             "\xEF\xBB\xBF",
                                             "\\x41\\n",
                                             "not A"};
        return kTexts[Below(std::size(kTexts))];
    }
    double Real()
    {
        static const double kReals[] = {0,
                                        -0.0,
                                        5e-324,
                                        2.2250738585072011e-308,
                                        DBL_MAX,
                                        -DBL_MAX,
                                        0.1,
                                        1.0 / 3,
                                        0.30000000000000004,
                                        123456789012345678.0,
                                        1e15,
                                        9007199254740993.0,
                                        1e22,
                                        4.35,
                                        -17.25,
                                        1,
                                        2,
                                        3,
                                        InfinityDbl(),
                                        -InfinityDbl(),
                                        std::nextafter(1.0, 2.0),
                                        1e-300};
        if (Below(4) == 0)
            return std::bit_cast<double>((uint64_t{random_()} << 32 | random_()) & ~(1ull << 62));
        return kReals[Below(std::size(kReals))];
    }
    float Weight()
    {
        static constexpr float kWeights[] = {
            0, 1, 0.5f, 1e-45f, 1.17549421e-38f, 3.4e38f, 0.1f, 0.333333343f, -0.0f, 16777218.0f, 1e-10f};
        return kWeights[Below(std::size(kWeights))];
    }

private:
    node_bn* AnyNode()
    {
        const nodelist_bn* nodes = GetNetNodes2_bn(net_, nullptr);
        return NthNode_bn(nodes, Below(std::max(1, LengthNodeList_bn(nodes))));
    }
    void AddNode() { NewNode_bn(Below(20) == 0 ? "*" : Name(), Below(3) == 0 ? 0 : 1 + Below(5), net_); }
    int AnyState(const node_bn* node) { return Below(std::max(1, GetNodeNumberStates_bn(node))); }
    std::vector<int> Parents(const node_bn* node, bool with_every)
    {
        std::vector<int> states;
        for (const Link& link : node->links)
            states.push_back(with_every && Below(4) == 0 ? EVERY_STATE : AnyState(link.parent));
        return states;
    }

    void Call()
    {
        static constexpr void (ExtremeNet::*kCalls[])() = {
            &ExtremeNet::OfNet,   &ExtremeNet::OfText,   &ExtremeNet::OfStates,    &ExtremeNet::OfLevels,
            &ExtremeNet::OfLinks, &ExtremeNet::OfTables, &ExtremeNet::OfFunctions, &ExtremeNet::OfFindings};
        node_ = AnyNode();
        if (node_ == nullptr) return AddNode();
        (this->*kCalls[Below(std::size(kCalls))])();
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
    }
    void OfNet()
    {
        const std::string text = Text();
        switch (Below(12)) {
            case 0:
                return SetNetName_bn(net_, Name());
            case 1:
                return SetNetTitle_bn(net_, text.c_str());
            case 2:
                return SetNetComment_bn(net_, text.c_str());
            case 3:
                return SetNetAuthor_bn(net_, text.c_str());
            case 4:
                return SetNetLastChange_bn(net_, text.c_str(), Below(2) ? UINT32_MAX : random_());
            case 5:
                return SetNetUserField_bn(net_, Name(), "a\0b", Below(3), 0);
            case 6:
                return SetNetNumDimensions_bn(net_, Below(4));
            case 7:
                return AddNodeToNodeset_bn(node_, Name());
            case 8:
                return NewNodeset_bn(Name(), net_);
            case 9:
                return void(SetNetAutoUpdate_bn(net_, Below(2) ? BELIEF_UPDATE : 0));
            case 10: {
                nodelist_bn* order = DupNodeList_bn(GetNetNodes2_bn(net_, nullptr));
                if (Below(2)) SetNetElimOrder_bn(net_, order);
                return DeleteNodeList_bn(order);
            }
            default:
                return AddNode();
        }
    }
    void OfText()
    {
        static constexpr const char *kMeasures[] = {"NOMINAL", "ORDINAL", "RATIO"},
                                    *kRelations[] = {"DETERMIN", "CHANCE"};
        const std::string text = Text();
        switch (Below(10)) {
            case 0:
                return SetNodeName_bn(node_, Name());
            case 1:
                return SetNodeTitle_bn(node_, text.c_str());
            case 2:
                return SetNodeComment_bn(node_, text.c_str());
            case 3:
                return SetNodeUnits_bn(node_, text.c_str());
            case 4:
                return SetNodeAuthor_bn(node_, text.c_str());
            case 5:
                return SetNodeLastChange_bn(node_, text.c_str(), random_());
            case 6:
                return SetNodeUserField_bn(node_, Name(), text.data(), static_cast<int>(text.size()), 0);
            case 7:
                return SetNodeMeasure_bn(node_, kMeasures[Below(3)]);
            case 8:
                return SetNodeRelation_bn(node_, kRelations[Below(2)]);
            default:
                return SetNodeKind_bn(node_, Below(5));
        }
    }
    void OfStates()
    {
        const std::string text = Text();
        const int state = AnyState(node_), count = GetNodeNumberStates_bn(node_);
        std::vector<int> order(static_cast<size_t>(std::max(0, count)));
        for (int i = 0; i < count; ++i) order[static_cast<size_t>(i)] = count - 1 - i;
        switch (Below(6)) {
            case 0:
                return SetNodeStateName_bn(node_, state, Below(5) ? Name() : "");
            case 1:
                return SetNodeStateTitle_bn(node_, state, text.c_str());
            case 2:
                return SetNodeStateComment_bn(node_, state, text.c_str());
            case 3:
                return AddNodeStates_bn(node_, Below(count + 1), Below(2) ? Name() : nullptr, 1,
                                        Below(2) - 1);
            case 4:
                return RemoveNodeState_bn(node_, state);
            default:
                return ReorderNodeStates_bn(node_, order.data());
        }
    }
    void OfLevels()
    {
        const bool discrete = GetNodeType_bn(node_) == DISCRETE_TYPE;
        const int count = discrete ? GetNodeNumberStates_bn(node_) : Below(4);
        std::vector<double> levels;
        for (int i = 0; i < count + 2; ++i) levels.push_back(discrete && Below(4) == 0 ? UndefDbl() : Real());
        if (!discrete) std::sort(levels.begin(), levels.begin() + (count == 0 ? 2 : count + 1));
        if (!discrete && Below(2))
            std::reverse(levels.begin(), levels.begin() + (count == 0 ? 2 : count + 1));
        SetNodeLevels_bn(node_, count, Below(9) ? levels.data() : nullptr);
    }
    void OfLinks()
    {
        static constexpr const char* kDelays[] = {"1",        "0e5",     "0",  "2, 0",
                                                  "1e-3,0.1", "0, 0, 7", "-1", " 3 ,\t4 "};
        const int link = Below(std::max(1, static_cast<int>(node_->links.size())));
        switch (Below(8)) {
            case 0:
                return SwitchNodeParent_bn(link, node_, nullptr);
            case 1:
                return DeleteLink_bn(link, node_);
            case 2:
                return SetNodeInputName_bn(node_, link, Name());
            case 3:
                return SetNodeInputDelay_bn(node_, link, kDelays[Below(std::size(kDelays))]);
            case 4:
                return SetNodePersistance_bn(node_, kDelays[Below(std::size(kDelays))]);
            case 5:
                return Below(4) ? void() : DeleteNode_bn(AnyNode());
            default:
                return node_->links.size() < 3 ? void(AddLink_bn(AnyNode(), node_)) : void();
        }
    }
    void OfTables()
    {
        const std::vector<int> parents = Parents(node_, true);
        std::vector<float> row(static_cast<size_t>(std::max(1, GetNodeNumberStates_bn(node_))));
        const int kind = Below(4);
        for (float& entry : row) entry = kind == 0 ? 0 : kind == 1 ? MissingProb() : 1e-45f;
        if (kind > 1)
            row[static_cast<size_t>(Below(static_cast<int>(row.size())))] = kind == 2 ? 1 : MissingProb();
        if (Below(5) == 0) return SetNodeExperience_bn(node_, parents.data(), std::abs(Real()));
        SetNodeProbs_bn(node_, parents.data(), row.data());
    }
    void OfFunctions()
    {
        static constexpr int kIndicators[] = {UNDEF_STATE, IMPOSS_STATE, EVERY_STATE, UNIFORM_STATE};
        const std::vector<int> parents = Parents(node_, true);
        const double value = Below(6) == 0 ? UndefDbl() : Below(6) == 0 ? ImpossibleDbl() : Real();
        if (Below(6) == 0) return DeleteNodeTables_bn(node_);
        if (Below(2)) return SetNodeFuncReal_bn(node_, parents.data(), value);
        SetNodeFuncState_bn(node_, parents.data(), Below(2) ? AnyState(node_) : kIndicators[Below(4)]);
    }
    void OfFindings()
    {
        std::vector<float> weights(static_cast<size_t>(std::max(1, GetNodeNumberStates_bn(node_))));
        for (float& weight : weights) weight = Weight();
        const std::vector<double>& levels = node_->states.levels;
        const bool at_level = !levels.empty() && Below(2);
        const double value =
            at_level ? levels[static_cast<size_t>(Below(static_cast<int>(levels.size())))] : Real();
        switch (Below(6)) {
            case 0:
                return EnterFinding_bn(node_, AnyState(node_));
            case 1:
                return EnterFindingNot_bn(node_, AnyState(node_));
            case 2:
                return EnterNodeLikelihood_bn(node_, weights.data());
            case 3:
                return RetractNodeFindings_bn(node_);
            default:
                return EnterNodeValue_bn(node_, value);
        }
    }

    std::mt19937 random_;
    environ_vx* env_;
    net_bn* net_;
    node_bn* node_ = nullptr;
};

// ---- Comparing ----

// A vector over time with as many entries as the saved net has dimensions; one of zeros is none for a delay.
inline std::string Padded(std::string vector, int dimensions)
{
    if (vector.empty()) return vector;
    for (auto n = std::count(vector.begin(), vector.end(), ',') + 1; n < dimensions; ++n) vector += ", 0";
    return vector;
}

template <class Numbers>
bool AreSameBits(const Numbers& a, const Numbers& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](auto x, auto y) {
               return std::memcmp(&x, &y, sizeof x) == 0;
           });
}

inline std::vector<std::string> NamesOf(const std::vector<Node*>& nodes)
{
    std::vector<std::string> names;
    for (const Node* node : nodes) names.push_back(node->name);
    return names;
}

inline bool IsSameText(Description a, Description b)
{
    if (a.user_name.empty()) b.user_name.clear();  // the writer gives the section a name
    return a == b;
}

// The first field in which the nodes differ; "" if none.
inline std::string Difference(const Node& a, const Node& b, int dimensions)
{
    const auto differs = [&](const char* field) { return a.name + ": " + field; };
    if (a.name != b.name) return differs("name");
    if (a.kind != b.kind) return differs("kind");
    if (a.measure != b.measure || a.relation != b.relation || a.units != b.units) return differs("words");
    if (!IsSameText(a.text, b.text)) return differs("text");
    if (a.states.type != b.states.type || NumStates(a) != NumStates(b)) return differs("states");
    for (int s = 0; s < NumStates(a); ++s)
        if (StateName(a, s) != StateName(b, s) || StateTitle(a, s) != StateTitle(b, s) ||
            StateComment(a, s) != StateComment(b, s))
            return differs("state texts");
    if (!AreSameBits(a.states.levels, b.states.levels)) return differs("levels");
    if (a.links.size() != b.links.size()) return differs("links");
    for (size_t i = 0; i < a.links.size(); ++i)
        if (a.links[i].parent->name != b.links[i].parent->name ||
            a.links[i].input_name != b.links[i].input_name ||
            Padded(a.links[i].delay, dimensions) != b.links[i].delay)
            return differs("link");
    if (!AreSameBits(a.tables.probs, b.tables.probs)) return differs("probs");
    if (a.tables.func_states != b.tables.func_states) return differs("function states");
    // A table of numbers beside one of states is not saved, which is reported.
    if (a.tables.func_states.empty() && !AreSameBits(a.tables.func_reals, b.tables.func_reals))
        return differs("function values");
    if (!AreSameBits(a.tables.experience, b.tables.experience)) return differs("experience");
    if (a.equation != b.equation || a.eqn_dirty != b.eqn_dirty) return differs("equation");
    if (Padded(a.persist, dimensions) != b.persist || Padded(a.position, dimensions) != b.position)
        return differs("time");
    if (a.kind == DISCONNECTED_NODE && a.disconnected_from != b.disconnected_from)
        return differs("original parent");
    if (a.finding.state != b.finding.state ||
        std::memcmp(&a.finding.value, &b.finding.value, sizeof(double)) != 0 ||
        !AreSameBits(a.finding.likelihood, b.finding.likelihood))
        return differs("finding");
    return "";
}

inline std::string Difference(const Net& a, const Net& b)
{
    if (a.name != b.name || !IsSameText(a.text, b.text)) return "net: text";
    if (a.auto_update != b.auto_update || a.auto_compile != b.auto_compile ||
        a.most_probable != b.most_probable)
        return "net: settings";
    if (a.num_dimensions > b.num_dimensions) return "net: dimensions";
    if (NamesOf(a.nodes.nodes) != NamesOf(b.nodes.nodes)) return "net: nodes";
    for (size_t i = 0; i < a.nodes.nodes.size(); ++i) {
        const std::string difference = Difference(*a.nodes.nodes[i], *b.nodes.nodes[i], b.num_dimensions);
        if (!difference.empty()) return difference;
    }
    if (a.node_sets.size() != b.node_sets.size()) return "net: node sets";
    for (size_t i = 0; i < a.node_sets.size(); ++i)
        if (a.node_sets[i].name != b.node_sets[i].name ||
            NamesOf(a.node_sets[i].nodes) != NamesOf(b.node_sets[i].nodes))
            return "net: node set " + a.node_sets[i].name;
    if (a.has_elim_order != b.has_elim_order || NamesOf(a.elim_order.nodes) != NamesOf(b.elim_order.nodes))
        return "net: elimination order";
    return "";
}

}  // namespace talora
