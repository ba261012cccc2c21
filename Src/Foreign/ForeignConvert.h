// Between foreign nets and nets of the engine.
//
// Names that break the engine's rule become legal and unique ones; the original becomes the title where there
// is none, and is kept in the user field `original_name` of nodes and in the titles of states, so that it can
// be written back.  Submodels become node sets, other properties user fields.
#pragma once

#include "BN/Model/Bnet.h"
#include "Foreign/ForeignNet.h"
#include "Foreign/Formats.h"

namespace talora {

// A new net of the environment; its caller owns it.  The foreign net has been checked; its tables are given
// up as they are taken over.
Net* ToNet(ForeignNet& foreign, environ_vx& env, bool keep_visual);

// What of a net a format can hold, with the account of the rest.
ForeignNet FromNet(const Net& net, const FileFormat& format);

}  // namespace talora
