#include "BN/BnSensitivity.h"

#include <algorithm>

namespace talora {

namespace {

HandlePool<sensv_bn, SENSV_TYPE>& Measurers()
{
    static auto* pool = new HandlePool<sensv_bn, SENSV_TYPE>;
    return *pool;
}

}  // namespace

Sensv* NewSensv(Node& query, std::vector<Node*> varying, int what_find)
{
    Net& net = *query.net;
    net.sensvs.reserve(net.sensvs.size() + 1);
    Sensv* sensv = Measurers().New(net.header.Lock());
    sensv->net = &net;
    sensv->query = &query;
    sensv->varying = std::move(varying);
    sensv->what_find = what_find;
    net.sensvs.push_back(sensv);
    return sensv;
}

void DeleteSensv(Sensv* sensv) noexcept
{
    auto& all = sensv->net->sensvs;
    all.erase(std::remove(all.begin(), all.end(), sensv), all.end());
    Measurers().Release(sensv);
}

}  // namespace talora
