// Encryption of binary net files with a password.
#pragma once

#include <string_view>

namespace talora {

constexpr char kNotEncrypted = 'N';
constexpr int kKeyIterations = 600000;  // of the key derivation, for files that are written

struct CipherDef {
    char letter;  // in files
    const char* name;
};
const CipherDef* FindCipher(char letter);            // null if there is none
const CipherDef* FindCipher(std::string_view name);  // among those that can be chosen; whatever the case

}  // namespace talora
