// What nets and nodes share behind the interface: user fields, last change, labels.
#pragma once

#include <string>
#include <vector>

#include "BN/Model/Bnet.h"

namespace talora {

// Each for the texts of a net, or of a node of it.
void SetLastChange(Net& net, Node* node, Description& text, const char* who, uint32_t when);
// Sets a user field, or removes it when value is null.  Checks name, length and kind.
void SetUserField(Net& net, Node* node, Description& text, const char* name, const void* value, int length,
                  int kind);
const char* FindUserField(const Description& text, const char* name, int* length, int kind);
void NthUserField(const Description& text, int index, const char** name, const char** value, int* length,
                  int kind);
void ClearUserField(const char** name, const char** value, int* length);

// Copies a label into a caller's buffer.  @return its whole length in bytes
int WriteLabel(std::string text, const char* options, char* label, int max_chars);

}  // namespace talora
