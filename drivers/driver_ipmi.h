// The IPMI request path to the BMC: tavo/driver_ipmi.h holds the interface. The OEM
// manufacturer number is shared here so that tests can build expected requests.
#pragma once

#include <cstdint>

#include "tavo/driver_ipmi.h"

namespace tavo::ipmi {

// IANA enterprise number sent in bytes 0..2 of the OEM reset requests (docs/emulated-ipmi.md).
inline constexpr uint32_t kOemEnterpriseNumber = 0x0007DB;
inline constexpr uint8_t kOemNetFn = 0x30;
inline constexpr uint8_t kOemCmd = 0x93;
inline constexpr uint8_t kSubResetMini = 0x53;
inline constexpr uint8_t kSubGetMini = 0x54;

}  // namespace tavo::ipmi
