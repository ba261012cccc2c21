// Members of large JSON objects.  An ordered object looks for the name among all that it has each time one is
// added by [], which takes minutes for a node of a hundred thousand states.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "talora/Session.h"

namespace command {

// Adds a member whose name the object does not have yet.
inline Json& AddMember(Json& object, std::string name, Json value)
{
    auto& members = object.get_ref<Json::object_t&>();
    members.emplace_back(std::move(name), std::move(value));
    return members.back().second;
}

}  // namespace command
