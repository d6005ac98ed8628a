// What a 64-bit Arm processor offers, as the kernel tells it to a process.
#pragma once

namespace zot {

// The bits of AT_HWCAP, which mean the same on every system; 0 when the kernel gives none.
unsigned long ArmFeatures();

}  // namespace zot
