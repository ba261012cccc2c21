// Showing where in an equation a mistake is.
#pragma once

#include <string>

#include "talora/Session.h"

namespace command {

// The library's last error with the text below it and a caret under the byte at place (none if it is
// negative).  Takes the error off the record.
std::string ExplainMistake(Session& session, const std::string& text, int place);

// The same for an equation of a node; "" if it is in order.  NULL for the one that it has.
std::string ExplainEquation(Session& session, const node_bn* node, const char* equation);

}  // namespace command
