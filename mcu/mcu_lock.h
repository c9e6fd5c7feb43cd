// Holds the MCU access lock hook for a scope. The hooks guard nothing today; the
// pairing is kept so that a real lock can take their place.
#pragma once

#include <cstdint>

#include "tavo/tavo_mcu.h"

namespace tavo::mcu {

// Time-outs of the hook for one SMBus exchange, an image upload and a log download.
inline constexpr uint32_t kLockTimeoutSmbus = 50;
inline constexpr uint32_t kLockTimeoutUpload = 1000;
inline constexpr uint32_t kLockTimeoutLog = 100;

class McuLock {
  public:
    explicit McuLock(uint32_t timeout) { (void)acquire(timeout); }
    ~McuLock() { release(); }
    McuLock(const McuLock &) = delete;
    McuLock &operator=(const McuLock &) = delete;

    // The hook's status; 0 when the lock is held.
    int acquire(uint32_t timeout) {
        status_ = tavo_mcu_set_lock(&lock_, timeout);
        held_ = status_ == 0;
        return status_;
    }
    void release() {
        if (held_) {
            (void)tavo_mcu_set_unlock(lock_);
            held_ = false;
        }
    }
    int status() const { return status_; }

  private:
    int32_t lock_ = 0;
    int status_ = 0;
    bool held_ = false;
};

}  // namespace tavo::mcu
