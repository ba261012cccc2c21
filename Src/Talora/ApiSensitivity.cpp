// Interface functions: sensitivity to findings.
#include "BN/BnSensitivity.h"
#include "Talora/APICheck.h"

using namespace talora;

sensv_bn* NewSensvToFinding_bn(const node_bn* query, const nodelist_bn* varying, int what_find)
{
    return CallApi2(__func__, query, varying, static_cast<sensv_bn*>(nullptr), [&] {
        CheckListEntries(varying);
        return NewSensv(const_cast<node_bn&>(*query), varying->nodes, what_find);
    });
}

void DeleteSensvToFinding_bn(sensv_bn* sensv)
{
    if (sensv == nullptr) return;
    CallApi(__func__, sensv, [&] { DeleteSensv(sensv); });
}
