// Nets for tests of the model, written in few words.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "BN/Model/BnBasicOps1.h"
#include "BN/Model/Bnet.h"
#include "Basic/Error.h"
#include "Talora.h"

namespace talora {

class ModelTest : public testing::Test {
protected:
    void SetUp() override
    {
        env_ = NewTaloraEnviron_vx(nullptr, nullptr);
        ASSERT_GE(InitTalora2_bn(env_, nullptr), 0);
        ClearErrors_vx(env_, INTERNAL_SEVERITY);  // of other tests
    }
    void TearDown() override
    {
        ClearErrors_vx(env_, INTERNAL_SEVERITY);
        CloseTalora_bn(env_, nullptr);
    }

    // "A B:3; A B -> C": nodes A and C with 2 states, B with 3 (0: continuous), and links to C.
    Net& Make(const std::string& text)
    {
        net_ = NewNet(*env_, "Test");
        std::istringstream statements(text);
        for (std::string statement; std::getline(statements, statement, ';');) {
            std::istringstream words(statement);
            std::vector<Node*> parents, children;
            bool after_arrow = false;
            for (std::string word; words >> word;) {
                if (word == "->")
                    after_arrow = true;
                else
                    (after_arrow ? children : parents).push_back(&NodeOf(word));
            }
            for (Node* child : children)
                for (Node* parent : parents) AddLink(*parent, *child);
        }
        return *net_;
    }
    Node& operator[](const char* name) { return *FindNode(*net_, name); }

    // The number of the error that an operation fails with, 0 if it succeeds; -1 if memory is out.
    template <class Operation>
    int ErrorOf(Operation&& operation)
    {
        try {
            operation();
            return 0;
        } catch (const Unwind& unwind) {
            return -unwind.record->number;
        } catch (const OutOfMemory&) {
            return -1;
        } catch (const std::bad_alloc&) {
            return -1;
        }
    }

    environ_vx* env_ = nullptr;
    Net* net_ = nullptr;

private:
    Node& NodeOf(const std::string& word)
    {
        const size_t colon = word.find(':');
        const std::string name = word.substr(0, colon);
        if (Node* node = FindNode(*net_, name)) return *node;
        return *AddNode(*net_, name, colon == std::string::npos ? 2 : std::stoi(word.substr(colon + 1)));
    }
};

}  // namespace talora
