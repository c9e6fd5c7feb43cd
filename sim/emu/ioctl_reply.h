// Completing an emulated ioctl: a negative result is an errno for the caller.
#pragma once

#include <umockdev.h>

namespace tavo::emu {

inline void complete_ioctl(UMockdevIoctlClient *client, long result) {
    if (result < 0) {
        umockdev_ioctl_client_complete(client, -1, static_cast<int>(-result));
    } else {
        umockdev_ioctl_client_complete(client, result, 0);
    }
}

}  // namespace tavo::emu
