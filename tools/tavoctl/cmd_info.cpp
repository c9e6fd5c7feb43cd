// tavoctl info / query: every reading of every device, or one reading of one.
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "queries.h"
#include "tavo/tavo_drv_api.h"
#include "topology.h"

namespace tavoctl {
namespace {

// The readings `info` takes of each device, with the argument each needs.
constexpr std::pair<std::string_view, uint32_t> kInfoReadings[] = {
    {"health", 0},      {"temperature", 0}, {"power", 0},
    {"voltage", 0},     {"frequency", 1},   {"frequency", 3},
    {"frequency", 4},   {"utilization", 1}, {"utilization", 2},
    {"aicore", 0},      {"memory", 0},      {"hbm", 0},
    {"ecc", 0},         {"ecc", 1},         {"chip", 0},
    {"board", 0},       {"die", 0},         {"firmware-version", 0},
    {"error-codes", 0},
};

std::string label_of(std::string_view name, const Query &query, uint32_t argument) {
    std::string label(name);
    if (!query.argument.empty()) {
        label += " " + std::to_string(argument);
    }
    return label;
}

nlohmann::json read_device(uint32_t card, const Device &device, bool human) {
    nlohmann::json readings = nlohmann::json::object();
    if (human) {
        std::printf("card %u device %u (%s)\n", card, device.id, type_name(device.type));
    }
    for (const auto &[name, argument] : kInfoReadings) {
        const Query *query = find_query(name);
        Reading reading = run_query_on(*query, device.type, card, device.id, argument);
        std::string label = label_of(name, *query, argument);
        if (human) {
            std::printf("  %-18s %s\n", label.c_str(), reading_to_text(reading).c_str());
        }
        readings[label] = reading_to_json(reading);
    }
    return {{"device_id", device.id}, {"type", type_name(device.type)}, {"readings", readings}};
}

}  // namespace

int run_info(const Options &options) {
    std::vector<Card> cards;
    if (int failed = load_cards(cards); failed != 0) {
        return failed;
    }
    nlohmann::json document = nlohmann::json::array();
    for (const Card &card : cards) {
        nlohmann::json devices = nlohmann::json::array();
        for (const Device &device : card.devices) {
            devices.push_back(read_device(card.id, device, !options.json));
        }
        document.push_back({{"card_id", card.id}, {"devices", devices}});
    }
    if (options.json) {
        print_json({{"cards", document}});
    }
    return 0;
}

int run_query(const Options &options, const QueryRequest &request) {
    const Query *query = find_query(request.item);
    if (query == nullptr) {
        std::fprintf(stderr, "tavoctl: unknown query '%s'; `tavoctl query --help` lists them\n",
                     request.item.c_str());
        return kExitFailure;
    }
    if (!query->argument.empty() && !request.argument) {
        std::fprintf(stderr, "tavoctl: query '%s' needs %.*s\n", request.item.c_str(),
                     static_cast<int>(query->argument.size()), query->argument.data());
        return kExitFailure;
    }
    int ret = initialise();
    if (ret != 0) {
        return fail("tavo_init", ret);
    }
    int32_t type = -1;
    ret = tavo_get_device_info(&type, request.card, request.device);
    if (ret != 0) {
        return fail("tavo_get_device_info", ret);
    }
    Reading reading =
        run_query_on(*query, type, request.card, request.device, request.argument.value_or(0));
    if (options.json) {
        print_json({{"card_id", request.card},
                    {"device_id", request.device},
                    {"query", request.item},
                    {"value", reading_to_json(reading)}});
    } else {
        std::printf("%s\n", reading_to_text(reading).c_str());
    }
    // A device that does not serve a query is an answer, not a failure.
    return reading.status == 0 || reading.status == -8001 ? 0 : fail(request.item, reading.status);
}

std::string query_list_help() {
    std::string help = "queries:\n";
    for (const Query &q : queries()) {
        std::string name(q.name);
        if (!q.argument.empty()) {
            name += " " + std::string(q.argument);
        }
        help += "  " + name + std::string(name.size() < 22 ? 22 - name.size() : 1, ' ') +
                std::string(q.help) + "\n";
    }
    return help;
}

}  // namespace tavoctl
