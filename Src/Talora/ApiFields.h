// What nets and nodes share behind the interface: texts, user fields, last change, labels.
#pragma once

#include <string>
#include <vector>

#include "BN/Model/BnEdit.h"
#include "BN/Model/Bnet.h"
#include "Talora/APICheck.h"

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

// ---- Whole functions of the interface, on a net or a node ----

// `what` names the step of undo.
template <class Object>
void CallSetText(const char* function, Object* object, std::string Description::*text, const char* value,
                 const char* what)
{
    CallApi(function, object,
            [&] { Change(*object, object->text.*text, TextArgument(value), NO_EFFECT, what); });
}

template <class Object>
const char* CallGetText(const char* function, const Object* object, std::string Description::*text)
{
    return CallApi(function, object, static_cast<const char*>(nullptr),
                   [&] { return (object->text.*text).c_str(); });
}

template <class Object>
const char* CallGetLastChange(const char* function, const Object* object, uint32_t* when)
{
    return CallApi(function, object, static_cast<const char*>(nullptr), [&] {
        if (when) *when = object->text.when_changed;
        return object->text.who_changed.c_str();
    });
}

template <class Object>
const char* CallGetUserField(const char* function, const Object* object, const char* name, int* length,
                             int kind)
{
    return CallApi(function, object, static_cast<const char*>(nullptr),
                   [&] { return FindUserField(object->text, name, length, kind); });
}

template <class Object>
void CallNthUserField(const char* function, const Object* object, int index, const char** name,
                      const char** value, int* length, int kind)
{
    ClearUserField(name, value, length);
    CallApi(function, object, [&] { NthUserField(object->text, index, name, value, length, kind); });
}

}  // namespace talora
