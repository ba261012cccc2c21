#include "Basic/Undo.h"

#include <gtest/gtest.h>

#include "Basic/Error.h"

namespace talora {
namespace {

// A history of a word: each record puts one letter at its end.
class Letter final : public UndoRecord {
public:
    Letter(std::string& word, char letter, size_t bytes, int code)
        : word_(word), letter_(letter), bytes_(bytes), code_(code)
    {}
    size_t Bytes() const noexcept override { return bytes_; }
    int Code() const noexcept override { return code_; }
    void Undo() noexcept override { word_.pop_back(); }
    void Redo() noexcept override { word_ += letter_; }

private:
    std::string& word_;
    const char letter_;
    const size_t bytes_;
    const int code_;
};

constexpr size_t kBytes = 100000;  // so that what a step takes besides hardly counts

class Word {
public:
    void Type(const std::string& letters, int code = 1)
    {
        for (char letter : letters)
            list.Do(std::make_unique<Letter>(text, letter, kBytes, code), std::string("type ") + letter);
    }
    // One command a letter: '<' undo, '>' redo, '(' ')' open and close a group, '!' abort it, '+' type the
    // next letter of the alphabet, '=' the same as a result derived from the last step, 'x' a call that types
    // two letters and fails, 'c' a call that types two, of which the first stays when it fails.
    void Run(const std::string& commands)
    {
        for (char command : commands) {
            switch (command) {
                case '<':
                    list.Undo();
                    break;
                case '>':
                    list.Redo();
                    break;
                case '(':
                    list.OpenGroup("group");
                    break;
                case ')':
                    list.CloseGroup();
                    break;
                case '!':
                    list.AbortGroup();
                    break;
                case '+':
                    Type(Next());
                    break;
                case '=':
                    list.Derive(true);
                    Type(Next());
                    list.Derive(false);
                    break;
                case 'x':
                    FailAfter("yz", 0);
                    break;
                case 'c':
                    FailAfter("yz", 1);
                    break;
            }
            EndCalls();
        }
    }
    std::string Next() { return std::string(1, next_++); }

    std::string text;
    UndoList list;

private:
    void FailAfter(const std::string& letters, size_t num_committed)
    {
        const uint64_t mark = CallMark();
        for (size_t i = 0; i < letters.size(); ++i) {
            Type(letters.substr(i, 1));
            if (i + 1 == num_committed) list.Commit();
        }
        RollBackCall(mark);
    }
    char next_ = 'a';
};

TEST(Undo, WalksAsCommanded)
{
    const struct {
        const char* label;
        const char* commands;
        const char* text;
        int undos, redos;
    } kCases[] = {
        {"steps", "+++", "abc", 3, 0},
        {"back and forth", "+++<<>", "ab", 2, 1},
        {"beyond both ends", "+<<<>>>", "a", 1, 0},
        {"a new step ends redoing", "+++<<+", "ad", 2, 0},
        {"a group is one step", "+(++)+<<", "a", 1, 2},
        {"a group comes back whole", "+(++)<>", "abc", 2, 0},
        {"nested groups", "(+(+)+)<", "", 0, 1},
        {"an empty group is none", "+<()>", "a", 1, 0},
        {"an aborted group leaves nothing", "+(++!)", "a", 1, 0},
        {"nor what follows the abortion", "+(+!++)+", "ae", 2, 0},
        {"aborting inside dooms the outer group", "+(+(+!)+)", "a", 1, 0},
        {"an aborted group keeps what can be redone", "++<(+!)>", "ab", 2, 0},
        {"a failed call leaves nothing", "+x", "a", 1, 0},
        {"a failed call keeps what can be redone", "++<x>", "ab", 2, 0},
        {"a failed call in a group", "(+x+)<", "", 0, 1},
        {"what was committed stays", "+c<", "a", 1, 1},
        {"a committed part in a group can be aborted", "+(c!)", "a", 1, 0},
        {"derived results go with their step", "+=<", "", 0, 1},
        {"and come back with it", "+=<>", "ab", 1, 0},
        {"they keep what can be redone", "++<=>", "acb", 2, 0},
        {"without a step they are not recorded", "=", "a", 0, 0},
        {"in a group they are part of it", "+(+=)<", "a", 1, 1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        Word word;
        word.list.SetLimits(100, 0);
        word.Run(c.commands);
        EXPECT_EQ(word.text, c.text);
        EXPECT_EQ(word.list.NumUndos(), c.undos);
        EXPECT_EQ(word.list.NumRedos(), c.redos);
    }
}

TEST(Undo, RefusesToWalkInsideGroups)
{
    const struct {
        const char* label;
        const char* commands;
        int error;
    } kCases[] = {
        {"open group", "+(+<", 6304},      {"open, nothing in it", "+(>", 6304},
        {"aborted group", "+(+!<", 6305},  {"no group to close", "+)", 6302},
        {"no group to abort", "+!", 6303},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        Word word;
        word.list.SetLimits(100, 0);
        try {
            word.Run(c.commands);
            ADD_FAILURE() << "not refused";
        } catch (const Unwind& unwind) {
            EXPECT_EQ(-unwind.record->number, c.error);
        }
    }
    Word garbled;
    garbled.list.SetLimits(100, 0);
    garbled.Type("a", 77);
    EndCalls();
    EXPECT_THROW(garbled.list.Undo(), Unwind);
    ClearReports(nullptr, INTERNAL_SEV);
}

TEST(Undo, TrimsToLimits)
{
    constexpr double kNone = 0;
    const struct {
        const char* label;
        int count;
        double memory;
        const char* commands;
        int new_count;
        double new_memory;
        int undos, redos;
    } kCases[] = {
        {"count", 3, kNone, "+++++", 3, kNone, 3, 0},
        {"count within the ring's first capacity", 40, kNone,
         "++++++++++++++++++++++++++++++++++++++++++++++++++", 40, kNone, 40, 0},
        {"memory", 100, 3.5 * kBytes, "++++++", 100, 3.5 * kBytes, 3, 0},
        {"whichever is tighter", 2, 3.5 * kBytes, "++++++", 2, 3.5 * kBytes, 2, 0},
        {"a step larger than the limit is kept alone", 9, 1000, "++", 9, 1000, 1, 0},
        {"a group counts whole", 9, 3.5 * kBytes, "++(++)", 9, 3.5 * kBytes, 2, 0},
        {"no count beside a memory limit", 0, 1e9, "+++", 0, 1e9, 1, 0},
        {"undone steps make room first", 3, kNone, "+++<<+", 3, kNone, 2, 0},
        {"lower count", 9, kNone, "+++++", 2, kNone, 2, 0},
        {"lower memory", 9, kNone, "+++++", 9, 2.5 * kBytes, 2, 0},
        {"lower count with steps to redo", 9, kNone, "+++++<<", 3, kNone, 1, 2},
        {"down to steps to redo", 9, kNone, "+++++<<<<", 2, kNone, 0, 2},
        {"off", 9, kNone, "+++", 0, 0, 0, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.label);
        Word word;
        word.list.SetLimits(c.count, c.memory);
        word.Run(c.commands);
        word.list.SetLimits(c.new_count, c.new_memory);
        EXPECT_EQ(word.list.NumUndos(), c.undos);
        EXPECT_EQ(word.list.NumRedos(), c.redos);
        EXPECT_GE(word.list.Memory(), double(kBytes) * (c.undos + c.redos));
        const std::string text = word.text;
        word.Run(std::string(c.undos, '<') + std::string(c.undos, '>'));
        EXPECT_EQ(word.text, text);
        word.list.SetLimits(0, 0);
        EXPECT_EQ(word.list.Memory(), 0);
        EXPECT_FALSE(word.list.IsRecording());
    }
    Word word;
    EXPECT_THROW(word.list.TurnOn(), Unwind);
    ClearReports(nullptr, INTERNAL_SEV);
}

TEST(Undo, DescribesWhatWouldBeUndone)
{
    Word word;
    word.list.SetLimits(9, 0);
    word.Run("++(+)<");
    EXPECT_EQ(*word.list.UndoText(0), "type b");
    EXPECT_EQ(*word.list.UndoText(1), "type a");
    EXPECT_EQ(word.list.UndoText(2), nullptr);
    EXPECT_EQ(*word.list.RedoText(0), "group");
    EXPECT_EQ(word.list.RedoText(1), nullptr);
}

}  // namespace
}  // namespace talora
