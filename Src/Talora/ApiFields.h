// What nets and nodes share behind the interface: user fields, last change, labels.
#pragma once

#include <string>
#include <vector>

#include "BN/Model/Bnet.h"

namespace talora {

Description WithLastChange(const Description& text, const char* who, uint32_t when);

// The user fields with one set, or removed when value is null.  Checks name, length and kind.
std::vector<UserField> WithUserField(const Description& text, const char* name, const void* value, int length,
                                     int kind);
const char* FindUserField(const Description& text, const char* name, int* length, int kind);
void NthUserField(const Description& text, int index, const char** name, const char** value, int* length,
                  int kind);
void ClearUserField(const char** name, const char** value, int* length);

// Copies a label into a caller's buffer.  @return its whole length in bytes
int WriteLabel(std::string text, const char* options, char* label, int max_chars);

}  // namespace talora
