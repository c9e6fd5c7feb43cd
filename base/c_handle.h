#pragma once

#include <memory>

namespace tavo::base {

// Deleter calling the C function `Free`. It holds no state, so a CHandle is the size
// of a plain pointer.
template <auto Free>
struct FreeWith {
    template <typename T>
    void operator()(T *object) const noexcept {
        Free(object);
    }
};

// Owner of a C object released by a free function, e.g.
// CHandle<rumo_device, rumo_close>.
template <typename T, auto Free>
using CHandle = std::unique_ptr<T, FreeWith<Free>>;

}  // namespace tavo::base
