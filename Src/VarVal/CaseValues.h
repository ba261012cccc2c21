// Entries of case files turned into states and values of nodes.
//
// What an entry may be: a state's name (exactly, then without regard to case), a number, "#" and the number
// of a state, a state's title, weights for the states as "{0.2;1;0.5}", or the missing-data character (or
// nothing at all) for "not known".
//
// A number is the number of a state for a discrete node and a value for others.  For a discrete node whose
// states have levels it is a level; what matches none is the number of a state as long as levels and numbers
// of states cannot be taken for each other.  A number is a title only if it is nothing else.
//
// About an entry that fits nothing the user is asked, or the default answer ("Skip All") is taken; answers
// may change the net.  Answers that are for all hold as long as the CaseValues does.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "BN/Model/Bnet.h"
#include "VarVal/CaseFile.h"

namespace talora {

enum class EntryKind : uint8_t {
    MISSING,
    STATE,       // a state, with its value if the entry was one
    VALUE,       // of a node without states
    LIKELIHOOD,  // in CaseEntry::weights
    MISFIT       // skipped
};

struct CaseEntry {
    EntryKind kind = EntryKind::MISSING;
    int state = UNDEF_STATE;
    double value = UndefDbl();
    bool always = true;  // the same text means the same for this node as long as its states stay
    std::vector<float> weights;
};

// The user answered "Halt"; the reader turns it into a failure that reports how far it came.
struct HaltedReading {};

class CaseValues {
public:
    explicit CaseValues(const environ_vx& env) : missing_(env.missing_char) {}

    // What an entry means for a node.
    // @param place  named in messages about the entry; filled in by the caller
    CaseEntry Read(Node& node, std::string_view text, const CasePlace& place);

    // How often the net was changed (states added, bounds expanded).
    int Changes() const { return changes_; }
    // From now on misfits are skipped without a message: all questions have been asked.
    void BeQuiet() { quiet_ = true; }
    // A case with a misfit is left out whole; only the messages differ here.
    void SkipWholeCases(bool skip) { skips_cases_ = skip; }

private:
    enum Situation { OUT_OF_BOUNDS, NO_SUCH_NUMBER, NO_SUCH_NAME, NOT_POSSIBLE, NUM_SITUATIONS };
    enum Answer { FIT, SKIP, HALT };
    struct Misfit {
        Situation situation;
        std::string_view text;
        double value = 0;
    };

    // What the states of a node are called, for nodes that are asked about often.
    struct StateWords {
        int num_asked = 0;
        bool is_made = false;
        std::unordered_map<std::string, int> names, lower_names, titles;
        std::unordered_map<double, int> levels;
    };
    const StateWords* WordsOf(const Node& node);
    int FindName(const Node& node, std::string_view text);
    int FindTitle(const Node& node, std::string_view text);
    int FindLevel(const Node& node, double value);
    CaseEntry ReadNumber(Node& node, std::string_view text, double value, const CasePlace& place);
    CaseEntry ReadLikelihood(Node& node, std::string_view text, const CasePlace& place);
    CaseEntry Unreadable(Node& node, std::string_view text, const CasePlace& place);
    CaseEntry Settle(Node& node, const Misfit& misfit, const CasePlace& place);
    Answer Ask(const Node& node, const Misfit& misfit, const std::string& place);
    void TellSkipped(const Node& node, const Misfit& misfit, const CasePlace& place) const;
    void MakeFit(Node& node, const Misfit& misfit, const CasePlace& place);
    void ExpandBounds(Node& node, double value, const CasePlace& place);
    void AddNumber(Node& node, double value, const CasePlace& place);
    void AddName(Node& node, std::string_view name, const CasePlace& place);

    char missing_;
    bool quiet_ = false;
    bool skips_cases_ = false;
    int changes_ = 0;
    std::unordered_map<const Node*, StateWords> words_;
    std::array<bool, NUM_SITUATIONS> skip_all_{};
    std::array<bool, NUM_SITUATIONS> fit_all_{};
};

}  // namespace talora
