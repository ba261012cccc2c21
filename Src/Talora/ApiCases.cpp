// Interface functions: case files and case sets.
#include "Talora/APICheck.h"
#include "VarVal/Caseset.h"

using namespace talora;

caseset_cs* NewCaseset_cs(const char* name, environ_vx* env)
{
    return CallEnviron(__func__, env, static_cast<caseset_cs*>(nullptr),
                       [&](environ_vx& owner) { return NewCaseset(owner, TextArgument(name)); });
}

void DeleteCaseset_cs(caseset_cs* cases)
{
    if (cases == nullptr) return;
    CallApi(__func__, cases, [&] { DeleteCaseset(cases); });
}
