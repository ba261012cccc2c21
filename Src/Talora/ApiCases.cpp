// Interface functions: case files and case sets.
#include <cmath>

#include "Basic/Stream.h"
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

void AddFileToCaseset_cs(caseset_cs* cases, const stream_vx* file, double degree, const char* options)
{
    CallApi(__func__, cases, [&] {
        CheckHandle(file);
        const bool skips_misfits = OptionsArgument(options, {"SkipMisfits"}) != 0;
        if (!std::isfinite(degree) || IsUndef(degree) || degree < 0)
            Fail(6528, "argument 'degree' is %g (it must be 0 or more, and finite)", degree);
        AddFileToCaseset(*cases, *file, degree, skips_misfits);
    });
}
