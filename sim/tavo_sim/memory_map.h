#pragma once

#include <string>

#include "world.h"

namespace tavo::sim {

// Physical memory (/dev/mem as a sparse file holding the described registers) and
// /proc files of the simulated host, from the "memory_map" and "proc_files"
// sections. Neither section: nothing is added.
bool attach_memory_map(World &world, std::string &error);

}  // namespace tavo::sim
