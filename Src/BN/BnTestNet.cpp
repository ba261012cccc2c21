#include "BN/BnTestNet.h"

#include <algorithm>

namespace talora {

namespace {

HandlePool<tester_bn, TESTER_TYPE>& Testers()
{
    static auto* pool = new HandlePool<tester_bn, TESTER_TYPE>;
    return *pool;
}

}  // namespace

Tester* NewTester(Net& net, std::vector<Node*> test_nodes, std::vector<Node*> unobserved)
{
    net.testers.reserve(net.testers.size() + 1);
    Tester* tester = Testers().New(net.header.Lock());
    tester->net = &net;
    tester->test_nodes = std::move(test_nodes);
    tester->unobserved = std::move(unobserved);
    net.testers.push_back(tester);
    return tester;
}

void DeleteTester(Tester* tester) noexcept
{
    auto& all = tester->net->testers;
    all.erase(std::remove(all.begin(), all.end(), tester), all.end());
    Testers().Release(tester);
}

}  // namespace talora
