// Which instruction set the kernels are taken from.
//
// Kernels are compiled several times, each time in a source file of its own with its own flags.  All sets
// give the same bits.  The best one that the processor has is taken; the environment variable TALORA_KERNELS
// (plain, avx2, avx512) asks for a lesser one, to measure and to test.
#pragma once

namespace talora {

enum class KernelSet { kPlain, kAvx2, kAvx512 };

// Decided once.
KernelSet ChosenKernelSet();

}  // namespace talora
