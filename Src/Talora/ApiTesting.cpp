// Interface functions: testing a net with cases.
#include "BN/BnTestNet.h"
#include "Talora/APICheck.h"

using namespace talora;

tester_bn* NewNetTester_bn(const nodelist_bn* test_nodes, const nodelist_bn* unobserved_nodes, int)
{
    return CallApi2(
        __func__, test_nodes, unobserved_nodes, static_cast<tester_bn*>(nullptr), [&]() -> tester_bn* {
            CheckListEntries(test_nodes);
            CheckListEntries(unobserved_nodes);
            if (test_nodes->nodes.empty()) return nullptr;
            return NewTester(*test_nodes->nodes[0]->net, test_nodes->nodes, unobserved_nodes->nodes);
        });
}

void DeleteNetTester_bn(tester_bn* tester)
{
    if (tester == nullptr) return;
    CallApi(__func__, tester, [&] { DeleteTester(tester); });
}
