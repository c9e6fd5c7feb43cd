#pragma once

#include <cstdint>
#include <vector>

namespace tavo::test {

// Pauses requested through sleep, usleep and nanosleep since the last clear, in
// microseconds, in the order they were requested.
std::vector<uint64_t> requested_sleeps();
void clear_requested_sleeps();
// Sum of requested_sleeps().
uint64_t total_requested_sleep_us();

// A real pause, for tests that need another process to make progress.
void really_sleep_ms(unsigned ms);

}  // namespace tavo::test
