// The names of interface functions in the words of other front ends, for messages.
#include <algorithm>
#include <iterator>
#include <string_view>

#include "Basic/Markup.h"

namespace talora {

namespace {

struct FunctionNames {
    std::string_view name;
    const char* automation;
};

constexpr FunctionNames kFunctions[] = {
#define TALORA_FUNCTION(name, automation, arguments) {#name, automation},
#include "Talora/ApiFunctions.inc"
#undef TALORA_FUNCTION
};

// Only the automation interface has names of its own.
const char* FunctionIn(Flavor flavor, std::string_view function)
{
    if (flavor != AUTOMATION_FLAVOR) return nullptr;
    const auto found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                    [&](const FunctionNames& names) { return names.name == function; });
    return found == std::end(kFunctions) ? nullptr : found->automation;
}

// Before the first call, as messages are worded in the lowest layer.
[[maybe_unused]] const bool is_registered = (SetFunctionTranslator(&FunctionIn), true);

}  // namespace

}  // namespace talora
