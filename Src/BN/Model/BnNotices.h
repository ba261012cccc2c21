// Notices from the model to what is worked out from it.
//
// The edits of BnEdit.h call these after each change; inference defines them (BnUpdating.cpp).  So the model
// can be read, and linked against, without knowing what a junction tree is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "BN/Model/Bnet.h"

namespace talora {

void DiscardTree(Net& net) noexcept;     // structure, states or kinds changed
void TableChanged(Node& node) noexcept;  // its potential is filled again before the next update
void FindingChanged(Node& node) noexcept;
void ModeChanged(Net& net) noexcept;  // beliefs or most probable configurations

// One counter for all nets, so that a result cached for a net is recognised as stale.
uint64_t NewUpdateCount() noexcept;

// The tree alone, out of the net: potentials hold a state of tables and findings that may be another by the
// time it is put back.
std::unique_ptr<CompiledNet, CompiledNetDeleter> TakeTree(Net& net) noexcept;
size_t TreeBytes(const CompiledNet& compiled) noexcept;

}  // namespace talora
