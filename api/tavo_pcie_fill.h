#pragma once

namespace tavo::api {

// Gives every chip its PCIe address text ("0000:3b:00.0", from the device-management
// library's PCIe record) as its PCIe path and PCI address, and each card the text of
// its first chip as its PCIe bus text: the keys of the slot map and the PCI
// configuration writes. A chip whose record cannot be read keeps empty texts.
void fill_pcie_texts();

}  // namespace tavo::api
