#pragma once

#include <string>

#include "world.h"

namespace tavo::sim {

// Physical memory (/dev/mem as a sparse file holding the described registers), /proc
// files, the PCI tree under /sys/devices and a stand-in dmidecode of the simulated
// host, from the "memory_map", "proc_files", "pci" and "dmidecode" sections. Without
// them nothing is added.
bool attach_memory_map(World &world, std::string &error);

}  // namespace tavo::sim
