// Whether the tables of a junction tree may be made.
#include "BN/Propagation/TreeTables.h"

#include "Basic/Error.h"
#include "Basic/Memory.h"

namespace talora {

void CheckTreeTables(double entries, const std::string& net_name)
{
    const double bytes = entries * sizeof(float);
    if (bytes > kMaxTreeBytes) Fail<6010>();
    if (net_name.empty())
        CheckMemory(bytes, "to compile/update this >-net (see >-LimitMemoryUsage_vx)");
    else
        CheckMemory(bytes, "to compile/update >-net '%s' (see >-LimitMemoryUsage_vx)", net_name.c_str());
}

}  // namespace talora
