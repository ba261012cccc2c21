// The life of an environment: made, initialised, closed.
#pragma once

#include <string>

#include "Basic/Environ.h"

namespace talora {

constexpr const char* kProduct = "Talora";
constexpr const char* kVersionText = "6.01";
constexpr int kVersionNumber = 601;

std::string VersionText();                 // product, version and what it was built with
std::string InitEnviron(environ_vx& env);  // @return the banner
void CloseEnviron(environ_vx* env) noexcept;

}  // namespace talora
