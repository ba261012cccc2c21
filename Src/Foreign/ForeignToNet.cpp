// From a foreign net to a net of the engine.
#include <algorithm>
#include <unordered_map>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/BnEdit.h"
#include "Basic/Names.h"
#include "Foreign/ForeignConvert.h"
#include "Foreign/ForeignNames.h"

namespace talora {

namespace {

// Makes the net in stages: nodes, what each holds, links, tables, sets.  A failure deletes what was made.
class Converter {
public:
    Converter(ForeignNet& foreign, environ_vx& env, bool keep_visual)
        : foreign_(foreign), env_(env), keep_visual_(keep_visual)
    {}
    ~Converter()
    {
        if (net_ != nullptr) DeleteNet(net_);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    Net* Run()
    {
        net_ = NewNet(env_, LegalName(foreign_.name.empty() ? "net" : foreign_.name));
        net_->text.title = foreign_.title;
        if (net_->text.title.empty() && net_->name != foreign_.name) net_->text.title = foreign_.name;
        net_->text.comment = foreign_.comment;
        PutFields(net_->text, foreign_.fields);
        PutField(net_->text, kOriginalFormat, foreign_.format.substr(0, foreign_.format.find(' ')));
        if (net_->name != foreign_.name && !foreign_.name.empty() && net_->text.title != foreign_.name)
            PutField(net_->text, kOriginalName, foreign_.name);
        MakeNodes();
        for (size_t i = 0; i < nodes_.size(); ++i) FillNode(foreign_.nodes[i], *nodes_[i]);
        for (size_t i = 0; i < nodes_.size(); ++i) Link(foreign_.nodes[i], *nodes_[i]);
        for (size_t i = 0; i < nodes_.size(); ++i) FillTables(foreign_.nodes[i], *nodes_[i]);
        MakeNodeSets();
        NameInLosses();
        net_->changed = false;
        Net* const result = net_;
        net_ = nullptr;
        return result;
    }

private:
    // Legal names stay as they are; the others are made legal around them.
    void MakeNodes()
    {
        std::vector<std::string> names;
        for (const ForeignNode& node : foreign_.nodes) names.push_back(node.name);
        names = UniqueLegalNames(names);
        for (size_t i = 0; i < names.size(); ++i) {
            const ForeignNode& from = foreign_.nodes[i];
            Node* const node = InsertNode(*net_, names[i], "read net");
            nodes_.push_back(node);
            if (names[i] == from.name) continue;
            if (from.title.empty())
                node->text.title = from.name;
            else
                PutField(node->text, kOriginalName, from.name);
        }
    }

    // Kind, texts, states, fields and findings of one node.
    void FillNode(ForeignNode& from, Node& node)
    {
        constexpr int kKinds[] = {NATURE_NODE, DECISION_NODE, UTILITY_NODE};
        node.kind = kKinds[static_cast<int>(from.kind)];
        if (!from.title.empty() && from.title != node.name) node.text.title = from.title;
        node.text.comment = from.comment;
        FillStates(from, node);
        node.relation = from.is_deterministic ? Relation::DETERMIN : Relation::CHANCE;
        node.equation = from.equation;
        if (keep_visual_ && from.HasPosition()) {
            node.text.visual_name = "V1";
            node.text.visual_section = " center = (" + NumberText(from.x) + ", " + NumberText(from.y) + "); ";
        }
        PutFields(node.text, from.fields);
        if (!from.cost.empty()) PutField(node.text, kObservationCost, from.cost);
        if (!from.noisy.rows.empty()) PutField(node.text, kNoisyMax, NoisyMaxText(from.noisy));
        if (from.finding >= 0) node.finding.state = from.finding;
        if (!from.likelihood.empty())
            node.finding.likelihood.assign(from.likelihood.begin(), from.likelihood.end());
    }

    // Limits make a continuous node with intervals, values a discrete one with levels.
    static void FillStates(const ForeignNode& from, Node& node)
    {
        NodeStates& states = node.states;
        states.type =
            from.kind == ForeignKind::UTILITY || from.HasLimits() ? VarType::CONTINUOUS : VarType::DISCRETE;
        states.num_states = static_cast<int>(from.states.size());
        const std::vector<std::string> names = UniqueLegalNames(from.states);
        states.texts.resize(names.size());
        for (size_t i = 0; i < names.size(); ++i) {
            StateText& state = states.texts[i];
            state.name = names[i];
            if (i < from.state_titles.size()) state.title = from.state_titles[i];
            if (state.title.empty() && names[i] != from.states[i]) state.title = from.states[i];
            if (i < from.state_comments.size()) state.comment = from.state_comments[i];
        }
        for (const double level : from.levels)
            states.levels.push_back(std::isinf(level) ? (level > 0 ? InfinityDbl() : -InfinityDbl()) : level);
    }

    // Parents in their order; delays along one dimension of time.
    void Link(const ForeignNode& from, Node& node)
    {
        if (from.parents.empty()) return;
        std::vector<talora::Link> links(from.parents.size());
        for (size_t i = 0; i < links.size(); ++i) {
            links[i].parent = nodes_[size_t(from.parents[i])];
            if (!from.delays.empty()) links[i].delay = from.delays[i];
            if (!links[i].delay.empty()) net_->num_dimensions = 1;
        }
        ReserveLinks(node, links);
        Change(node, node.links, std::move(links), RELINKS, "read net");
    }

    // Tables are floats in the engine, utilities doubles, certain ones lists of states.
    static void FillTables(ForeignNode& from, Node& node)
    {
        NodeTables& tables = node.tables;
        if (from.kind == ForeignKind::UTILITY) {
            tables.func_reals = std::move(from.table);
        } else if (from.is_deterministic) {
            const size_t width = from.Width();
            tables.func_states.reserve(from.table.size() / width);
            for (auto row = from.table.begin(); row != from.table.end(); row += std::ptrdiff_t(width))
                tables.func_states.push_back(
                    static_cast<int32_t>(std::max_element(row, row + std::ptrdiff_t(width)) - row));
        } else {
            tables.probs.reserve(from.table.size());
            for (const double p : from.table) tables.probs.push_back(static_cast<float>(p));
        }
        tables.experience = std::move(from.experience);
        TableVector<double>().swap(from.table);
    }

    // A node of a submodel is in the sets of all submodels around it.
    void MakeNodeSets()
    {
        std::vector<std::string> names;
        for (const ForeignGroup& group : foreign_.groups) names.push_back(group.name);
        names = UniqueLegalNames(names);
        for (size_t g = 0; g < names.size(); ++g) net_->node_sets.push_back({names[g], {}});
        for (size_t i = 0; i < nodes_.size(); ++i)
            for (int g = foreign_.nodes[i].group; g >= 0; g = foreign_.groups[size_t(g)].parent)
                net_->node_sets[size_t(g)].nodes.push_back(nodes_[i]);
    }

    // Losses name nodes as they are called in the net.
    void NameInLosses()
    {
        std::unordered_map<std::string_view, const Node*> by_name;
        for (size_t i = 0; i < nodes_.size(); ++i) by_name[foreign_.nodes[i].name] = nodes_[i];
        for (Loss& loss : foreign_.losses)
            for (std::string& name : loss.nodes)
                if (const auto found = by_name.find(name); found != by_name.end()) name = found->second->name;
    }

    // A field of the file that is called like one of ours gives way to it.
    static void PutField(Description& text, std::string_view name, std::string value)
    {
        for (UserField& field : text.user_fields)
            if (field.name == name) {
                field.value = std::move(value);
                return;
            }
        text.user_fields.push_back({std::string(name), std::move(value)});
    }

    // Names of fields obey the rule for names too.
    static void PutFields(Description& text, const std::vector<ForeignField>& fields)
    {
        std::vector<std::string> names;
        for (const ForeignField& field : fields)
            names.push_back(field.first.empty() ? "property" : field.first);
        names = UniqueLegalNames(names);
        for (size_t i = 0; i < fields.size(); ++i) text.user_fields.push_back({names[i], fields[i].second});
    }

    ForeignNet& foreign_;
    environ_vx& env_;
    const bool keep_visual_;
    Net* net_ = nullptr;
    std::vector<Node*> nodes_;
};

}  // namespace

Net* ToNet(ForeignNet& foreign, environ_vx& env, bool keep_visual)
{
    return Converter(foreign, env, keep_visual).Run();
}

}  // namespace talora
