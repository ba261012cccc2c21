// What nets and nodes share behind the interface: user fields, last change, labels.
#include "Talora/ApiFields.h"

#include <algorithm>
#include <cstring>

#include "BN/Model/BnEdit.h"
#include "Basic/Text.h"
#include "Talora/APICheck.h"

namespace talora {

namespace {

void CheckFieldKind(int kind)
{
    if (kind != 0) Fail<6192>(kind);
}

// Few fields: a search along the list keeps their order.
const UserField* FindField(const Description& text, std::string_view name)
{
    for (const UserField& field : text.user_fields)
        if (field.name == name) return &field;
    return nullptr;
}

}  // namespace

void SetLastChange(Net& net, Node* node, Description& text, const char* who, uint32_t when)
{
    Change(net, node, text.who_changed, TextArgument(who), NO_EFFECT, "set last change");
    Change(net, node, text.when_changed, when, NO_EFFECT, "set last change");
}

void SetUserField(Net& net, Node* node, Description& text, const char* name, const void* value, int length,
                  int kind)
{
    constexpr const char* kWhat = "change user field";
    CheckFieldKind(kind);
    std::string field_name = NameArgument(name, "name");
    if (length < -1) Fail<6193>(length);
    std::vector<UserField>& fields = text.user_fields;
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const UserField& field) { return field.name == field_name; });
    const size_t index = found - fields.begin();
    if (value == nullptr) {
        if (found != fields.end()) ChangeElement(net, node, fields, ListEdit::kErase, index, {}, kWhat);
        return;
    }
    const char* bytes = static_cast<const char*>(value);
    UserField field = {std::move(field_name),
                       std::string(bytes, length == -1 ? strlen(bytes) : size_t(length))};
    const ListEdit edit = found == fields.end() ? ListEdit::kInsert : ListEdit::kReplace;
    ChangeElement(net, node, fields, edit, index, std::move(field), kWhat);
}

const char* FindUserField(const Description& text, const char* name, int* length, int kind)
{
    if (length) *length = 0;
    CheckFieldKind(kind);
    const UserField* field = FindField(text, NameArgument(name, "name"));
    if (field == nullptr) return nullptr;
    if (length) *length = int(field->value.size());
    return field->value.c_str();
}

void ClearUserField(const char** name, const char** value, int* length)
{
    if (name) *name = nullptr;
    if (value) *value = nullptr;
    if (length) *length = 0;
}

void NthUserField(const Description& text, int index, const char** name, const char** value, int* length,
                  int kind)
{
    CheckFieldKind(kind);
    if (index < 0) Fail<6190>(index);
    if (index >= int(text.user_fields.size())) return;
    const UserField& field = text.user_fields[index];
    if (name) *name = field.name.c_str();
    if (value) *value = field.value.c_str();
    if (length) *length = int(field.value.size());
}

// Returns the whole length, whatever fits, so that a caller can ask for it first.
int WriteLabel(std::string text, const char* options, char* label, int max_chars)
{
    const bool multi_line = OptionsArgument(options, {"multi_line"}) != 0;
    if (max_chars < 0) Fail<6194>(max_chars);
    if (label == nullptr && max_chars != 0) Fail<6195>(max_chars);
    if (!multi_line)
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    if (max_chars > 0) {
        const size_t length = CutLength(text, size_t(max_chars) - 1);
        memcpy(label, text.data(), length);
        label[length] = '\0';
    }
    return int(text.size());
}

}  // namespace talora
