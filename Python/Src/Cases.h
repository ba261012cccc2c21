// Case sets, for what learns and tests with them.
#pragma once

#include "Core.h"

namespace talora_py {

struct Caseset {
    AppPtr app;
    caseset_cs* handle = nullptr;
    std::shared_mutex sources_lock;  // held shared by what reads the cases
    ~Caseset()
    {
        FreeHandle(*app, [&] { DeleteCaseset_cs(handle); });
    }
};
using CasesetPtr = std::shared_ptr<Caseset>;

// A case set, or a set of the one source given: a DataFrame, a path, bytes or a Streamer.
CasesetPtr CasesArg(const AppPtr& app, const py::object& source);

}  // namespace talora_py
