// The content that every seed signature of fuzz_signed_data signs.
#pragma once

#include <cstdint>

namespace tavo::fuzz {

inline constexpr uint8_t kContent[] = {'t', 'a', 'v', 'o', ' ', 'f', 'i', 'r', 'm', 'w',
                                       'a', 'r', 'e', ' ', 'p', 'a', 'c', 'k', 'a', 'g',
                                       'e', ' ', 'c', 'o', 'n', 't', 'e', 'n', 't', '\n'};

}  // namespace tavo::fuzz
