// tavoctl label get|set|dump|clear: the electronic label of an embedded-board host.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "commands.h"
#include "tavo/driver_elable.h"

namespace tavoctl {
namespace {

// Item ids of the label, in the order they are stored.
constexpr std::array<uint8_t, 26> kItemIds{0x10, 0x11, 0x12, 0x20, 0x21, 0x22, 0x23, 0x24, 0x25,
                                           0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x60, 0x61,
                                           0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x50};
// The largest item (496 bytes) and the byte the library may write past it.
constexpr std::size_t kItemBufferSize = 512;
constexpr std::size_t kMaxSetLength = 255;

struct LabelArgs {
    std::string item;
    std::string text;
    CLI::App *get = nullptr;
    CLI::App *set = nullptr;
    CLI::App *dump = nullptr;
    CLI::App *clear = nullptr;
};

LabelArgs &label_args() {
    static LabelArgs args;
    return args;
}

// Decimal, or hexadecimal after "0x"; 0..255.
std::optional<uint8_t> parse_item(const std::string &text) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (digits.empty() || digits.size() > 4) {
        return std::nullopt;
    }
    std::size_t used = 0;
    unsigned long value = 0;
    try {
        value = std::stoul(digits, &used, hex ? 16 : 10);
    } catch (const std::exception &) {
        return std::nullopt;
    }
    if (used != digits.size() || value > 0xff || digits[0] == '-' || digits[0] == '+') {
        return std::nullopt;
    }
    return static_cast<uint8_t>(value);
}

std::string item_name(uint8_t id) {
    char name[8];
    std::snprintf(name, sizeof name, "0x%02x", id);
    return name;
}

// Printable ASCII as is, everything else as \xNN, so that any label prints on one line.
std::string printable(std::string_view bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c == '\\') {
            out += "\\\\";
        } else if (c >= 0x20 && c < 0x7f) {
            out += static_cast<char>(c);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
            out += escaped;
        }
    }
    return out;
}

std::string hex(std::string_view bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", c);
        out += pair;
    }
    return out;
}

struct Item {
    uint8_t id = 0;
    std::string bytes;
};

int read_item(uint8_t id, Item &item) {
    std::array<uint8_t, kItemBufferSize> buffer{};
    uint8_t *dest = buffer.data();
    uint16_t length = 0;
    int status = DriverElabelGetData(id, &dest, &length);
    if (status == 0) {
        item.id = id;
        item.bytes.assign(reinterpret_cast<const char *>(buffer.data()),
                          std::min<std::size_t>(length, buffer.size()));
    }
    return status;
}

nlohmann::json to_json(const Item &item) {
    return {{"item", item.id},
            {"length", item.bytes.size()},
            {"text", printable(item.bytes)},
            {"hex", hex(item.bytes)}};
}

int invalid_item(const std::string &text) {
    std::fprintf(stderr, "tavoctl: invalid label item '%s' (0..255, or 0x00..0xff)\n",
                 text.c_str());
    return kExitFailure;
}

int run_get(const Options &options) {
    std::optional<uint8_t> id = parse_item(label_args().item);
    if (!id) {
        return invalid_item(label_args().item);
    }
    Item item;
    int status = read_item(*id, item);
    if (status != 0) {
        return fail("DriverElabelGetData", status);
    }
    if (options.json) {
        print_json(to_json(item));
    } else {
        std::cout << printable(item.bytes) << '\n';
    }
    return 0;
}

int run_set(const Options &options) {
    const LabelArgs &args = label_args();
    std::optional<uint8_t> id = parse_item(args.item);
    if (!id) {
        return invalid_item(args.item);
    }
    if (args.text.size() > kMaxSetLength) {
        std::fprintf(stderr, "tavoctl: text of %zu bytes is longer than %zu\n", args.text.size(),
                     kMaxSetLength);
        return kExitFailure;
    }
    int status = DriverElabelSetData(*id, reinterpret_cast<const uint8_t *>(args.text.data()), 0,
                                     static_cast<uint8_t>(args.text.size()));
    if (status != 0) {
        return fail("DriverElabelSetData", status);
    }
    if (options.json) {
        print_json({{"item", *id}, {"length", args.text.size()}});
    } else {
        std::cout << item_name(*id) << ": " << args.text.size() << " bytes written\n";
    }
    return 0;
}

int run_dump(const Options &options) {
    nlohmann::json items = nlohmann::json::array();
    Table table({"ITEM", "LENGTH", "TEXT"});
    for (uint8_t id : kItemIds) {
        Item item;
        int status = read_item(id, item);
        if (status != 0) {
            return fail("DriverElabelGetData", status);
        }
        items.push_back(to_json(item));
        table.add({item_name(id), std::to_string(item.bytes.size()), printable(item.bytes)});
    }
    if (options.json) {
        print_json({{"items", items}});
    } else {
        table.print();
    }
    return 0;
}

int run_clear(const Options &options) {
    int status = DriverElabelClear();
    if (status != 0) {
        return fail("DriverElabelClear", status);
    }
    if (options.json) {
        print_json({{"cleared", true}});
    } else {
        std::cout << "label cleared\n";
    }
    return 0;
}

}  // namespace

CLI::App *add_label_command(CLI::App &app, Options &options) {
    LabelArgs &args = label_args();
    CLI::App *label = app.add_subcommand("label", "read and write the board's electronic label");
    label->require_subcommand(1);
    args.get = label->add_subcommand("get", "print one item");
    args.get->add_option("ITEM", args.item, "item id, decimal or 0x hex")->required();
    args.set = label->add_subcommand("set", "replace one item");
    args.set->add_option("ITEM", args.item, "item id, decimal or 0x hex")->required();
    args.set->add_option("TEXT", args.text, "the item's new text")->required();
    args.dump = label->add_subcommand("dump", "print every item");
    args.clear = label->add_subcommand("clear", "empty every item and erase the EEPROM label");
    for (CLI::App *sub : {label, args.get, args.set, args.dump, args.clear}) {
        sub->add_flag("--json", options.json, "print one JSON document instead of text");
    }
    return label;
}

int run_label(const Options &options) {
    const LabelArgs &args = label_args();
    if (args.get->parsed()) {
        return run_get(options);
    }
    if (args.set->parsed()) {
        return run_set(options);
    }
    if (args.dump->parsed()) {
        return run_dump(options);
    }
    return run_clear(options);
}

}  // namespace tavoctl
