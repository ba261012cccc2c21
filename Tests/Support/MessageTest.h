// The fixture of tests that raise messages, one per row of a table: what is wrong, and the number that
// reports it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Support/TestEnviron.h"

class MessageTest : public testing::Test {
protected:
    struct Row {
        int number;
        std::function<void()> raise;
    };

    // Each row has a new net with nodes A and B (two states), A -> B, C (three states, levels) and R
    // (continuous).
    void ExpectRaised(const std::vector<Row>& rows)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE("message " + std::to_string(row.number));
            NewNet();
            row.raise();
            const bool is_raised = GetError_vx(nullptr, NULL_SEVERITY, row.number, nullptr) != nullptr;
            EXPECT_TRUE(is_raised) << "raised instead: " << ListErrors_vx(nullptr, 0, 9);
            ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
            Restore();
        }
    }

    node_bn* Add(const char* name, int num_states) { return NewNode_bn(name, num_states, net_); }
    nodelist_bn* List(std::vector<node_bn*> nodes)
    {
        nodelist_bn* list = NewNodeList2_bn(0, net_);
        for (node_bn* node : nodes) AddNodeToList_bn(node, list, -1);
        return list;
    }
    net_bn* Read(const std::string& text)
    {
        return ReadNet_bn(NewStreamOf(env_, "test.dne", text), NO_WINDOW);
    }
    stream_vx* Cases(const std::string& text) { return NewStreamOf(env_, "test.cas", text); }
    caseset_cs* Caseset(const std::string& text, const char* options = nullptr)
    {
        caseset_cs* cases = NewCaseset_cs("cases", env_);
        AddFileToCaseset_cs(cases, Cases(text), 1, options);
        return cases;
    }
    void ReadFirst(const std::string& text, int add = DONT_ADD_NEW)
    {
        double position = FIRST_CASE_POSN;
        ReadNetFindings2_bn(&position, Cases(text), add, List({a_, b_, c_, r_}), nullptr, nullptr);
    }

    TestEnviron env_;
    net_bn* net_ = nullptr;
    node_bn *a_ = nullptr, *b_ = nullptr, *c_ = nullptr, *r_ = nullptr;

    void NewNet()
    {
        net_ = NewNet_bn("Test", env_);
        a_ = Add("A", 2);
        b_ = Add("B", 2);
        c_ = Add("C", 3);
        r_ = Add("R", 0);
        AddLink_bn(a_, b_);
        const prob_bn a[] = {0.25f, 0.75f}, b[] = {0.5f, 0.5f, 0, 1}, c[] = {0.5f, 0.25f, 0.25f};
        SetNodeTable_bn(a_, a, 2);
        SetNodeTable_bn(b_, b, 4);
        SetNodeTable_bn(c_, c, 3);
        const level_bn levels[] = {1, 2, 4};
        SetNodeLevels_bn(c_, 3, levels);
        SetNodeStateNames_bn(a_, "yes,no");
    }

private:
    void Restore()
    {
        SetHaltFlag_vx(env_, 0);
        SetQuestionHandler_vx(env_, nullptr, nullptr);
        SetMessageHandler_vx(env_, nullptr, nullptr);
        SetFindingChecking_vx(env_, 0);
        SetMissingDataChar_vx('*', env_);
        SetCaseFileDelimChar_vx('\t', env_);
        DeleteNet_bn(net_);
        ClearErrors_vx(nullptr, INTERNAL_SEVERITY);
    }
};
