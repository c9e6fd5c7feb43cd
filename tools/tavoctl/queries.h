// The device queries tavoctl knows, each turning one library call into JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavoctl {

// What one query answered: a value, "not supported", or the library's failure status.
struct Reading {
    int status = 0;
    nlohmann::json value;
};

// Device types a query is routed for (bit n: device type n).
inline constexpr unsigned kChipOnly = 1u;
inline constexpr unsigned kAllTypes = 7u;

struct Query {
    std::string_view name;
    std::string_view argument;  // name of the query's own argument, empty when none
    std::string_view help;
    Reading (*run)(uint32_t card, uint32_t device, uint32_t argument);
    unsigned types = kAllTypes;
};

// Runs `query` on a device of `type`; a type the library does not route the query
// for answers "not supported" without asking.
Reading run_query_on(const Query &query, int32_t type, uint32_t card, uint32_t device,
                     uint32_t argument);

std::span<const Query> queries();
const Query *find_query(std::string_view name);

// The value, "not supported" or {"error": status}.
nlohmann::json reading_to_json(const Reading &reading);
// The same as one line of text.
std::string reading_to_text(const Reading &reading);

}  // namespace tavoctl
