// The words that messages use for the system's terms, one column per front end.
#pragma once

#include <string>
#include <string_view>

#include "Basic/Environ.h"

namespace talora {

// What a flavour calls a marked term; the term itself where it has no entry.
std::string_view TermIn(Flavor flavor, std::string_view term);

// Replaces ">-term" by its words; a "-" that ends the term is dropped (">-node-s", ">-cr-").
std::string ExpandMarkupIn(Flavor flavor, std::string_view text);
// The same without allocating; what does not fit is cut off.  Ended with a zero.
void ExpandMarkupInto(Flavor flavor, std::string_view text, char* buffer, size_t size);

// The name of an interface function in a flavour, null if it has none of its own.  Set by the
// folder that knows the functions.
using FunctionTranslator = const char* (*)(Flavor flavor, std::string_view function);
void SetFunctionTranslator(FunctionTranslator translator);
std::string FunctionNameIn(Flavor flavor, const char* function);

Flavor CurrentFlavor();  // of the calling thread's environment

}  // namespace talora
