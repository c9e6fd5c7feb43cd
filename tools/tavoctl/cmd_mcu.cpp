// tavoctl mcu info|upgrade|log|check-i2c|boot-area: the card's MCU.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "audit.h"
#include "commands.h"
#include "package.h"
#include "tavo/tavo_drv_api.h"
#include "tavo/tavo_mcu.h"
#include "topology.h"

namespace tavoctl {
namespace {

struct McuArgs {
    std::optional<uint32_t> card;
    std::string file;
    std::string log_type;
    uint32_t control = 1;
    bool dry_run = false;
    bool unsigned_image = false;
    bool switch_area = false;
    CLI::App *info = nullptr;
    CLI::App *upgrade = nullptr;
    CLI::App *log = nullptr;
    CLI::App *check = nullptr;
    CLI::App *boot_area = nullptr;
};

McuArgs &mcu_args() {
    static McuArgs args;
    return args;
}

constexpr int kStatusPolls = 10;
constexpr useconds_t kStatusPollPauseUs = 500000;

struct LogType {
    const char *name;
    const char *file_name;
    uint32_t type;
};
constexpr std::array<LogType, 3> kLogTypes{
    {{"error", "error_log", TAVO_MCU_LOG_ERROR},
     {"operate", "operate_log", TAVO_MCU_LOG_OPERATE},
     {"maintenance", "maintaince_log", TAVO_MCU_LOG_MAINTENANCE}}};

// The card asked for, or the first card that has an MCU.
std::optional<uint32_t> choose_card(int &status) {
    status = initialise();
    if (status != 0) {
        fail("tavo_init", status);
        return std::nullopt;
    }
    std::vector<Card> cards;
    if (!read_cards(cards, status)) {
        fail("tavo_get_card_num_list", status);
        return std::nullopt;
    }
    for (const Card &card : cards) {
        bool asked = !mcu_args().card || *mcu_args().card == card.id;
        for (const Device &device : card.devices) {
            if (asked && device.type == TAVO_DEVICE_MCU) {
                return card.id;
            }
        }
    }
    if (mcu_args().card) {
        std::fprintf(stderr, "tavoctl: card %u has no MCU (see mcu_card= in /run/board_cfg.ini)\n",
                     *mcu_args().card);
    } else {
        std::fprintf(stderr,
                     "tavoctl: no card of this host has an MCU (see mcu_card= in "
                     "/run/board_cfg.ini)\n");
    }
    status = -1;
    return std::nullopt;
}

// One reading of `mcu info`: a JSON value, or the failing status.
struct Reading {
    std::string name;
    std::function<int(uint32_t, nlohmann::json &)> read;
};

template <typename T, int (*Read)(uint32_t, T *)>
int word(uint32_t card, nlohmann::json &out) {
    T value{};
    int ret = Read(card, &value);
    out = value;
    return ret;
}

int version(uint32_t card, nlohmann::json &out) {
    std::array<char, TAVO_MCU_ITEM_MAX> text{};
    uint32_t length = 0;
    int ret = tavo_mcu_get_version(card, text.data(), &length);
    out = std::string(text.data());
    return ret;
}

int serial_number(uint32_t card, nlohmann::json &out) {
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> bytes{};
    uint32_t length = 0;
    int ret = tavo_mcu_get_sn(card, bytes.data(), &length);
    out = std::string(bytes.begin(), bytes.begin() + std::min<uint32_t>(length, TAVO_MCU_ITEM_MAX));
    return ret;
}

int error_codes(uint32_t card, nlohmann::json &out) {
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> bytes{};
    uint32_t count = 0, width = 0;
    int ret = tavo_mcu_get_device_errorcode(card, &count, bytes.data(), &width);
    out = nlohmann::json::array();
    for (uint32_t i = 0; ret == 0 && i < count && (i + 1) * width <= bytes.size(); ++i) {
        out.push_back(bytes[i * width] | bytes[i * width + 1] << 8);
    }
    return ret;
}

int upgrade_status(uint32_t card, nlohmann::json &out) {
    uint8_t first = 0, second = 0;
    int ret = tavo_mcu_get_upgrade_statues(card, &first, &second);
    out = nlohmann::json::array({first, second});
    return ret;
}

int label(uint32_t card, uint32_t item, nlohmann::json &out) {
    std::array<uint8_t, TAVO_MCU_ITEM_MAX> bytes{};
    uint16_t length = 0;
    int ret = tavo_mcu_get_elable_info(card, item, bytes.data(), &length);
    out = std::string(bytes.begin(), bytes.begin() + std::min<uint16_t>(length, TAVO_MCU_ITEM_MAX));
    return ret;
}

std::vector<Reading> readings() {
    std::vector<Reading> all{
        {"health", word<uint32_t, tavo_mcu_get_health>},
        {"temperature", word<int32_t, tavo_mcu_get_temperature>},
        {"power", word<uint32_t, tavo_mcu_get_power_info>},
        {"voltage", word<uint32_t, tavo_mcu_get_voltage>},
        {"version", version},
        {"serial_number", serial_number},
        {"board_id", word<uint32_t, tavo_mcu_get_board_id>},
        {"pcb_id", word<uint32_t, tavo_mcu_get_pcb_id>},
        {"bom_id", word<uint32_t, tavo_mcu_get_bom_id>},
        {"boot_area", word<uint32_t, tavo_mcu_get_boot_area>},
        {"error_codes", error_codes},
        {"upgrade_status", upgrade_status},
    };
    std::array<uint32_t, 4> items{};
    (void)tavo_get_elable_item_it(&items[0], &items[1], &items[2], &items[3]);
    for (uint32_t item : items) {
        all.push_back({"label_" + std::to_string(item), [item](uint32_t card, nlohmann::json &out) {
                           return label(card, item, out);
                       }});
    }
    return all;
}

std::string as_text(const nlohmann::json &value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

int mcu_info(const Options &options, uint32_t card) {
    nlohmann::json document = {{"card_id", card}};
    Table table({"ITEM", "VALUE"});
    bool all_read = true;
    for (const Reading &reading : readings()) {
        nlohmann::json value;
        int ret = reading.read(card, value);
        if (ret != 0) {
            all_read = false;
            value = nullptr;
        }
        document[reading.name] = value;
        table.add(
            {reading.name, ret == 0 ? as_text(value) : "failed (" + std::to_string(ret) + ")"});
    }
    if (options.json) {
        print_json(document);
    } else {
        std::cout << "card " << card << " MCU\n";
        table.print();
    }
    return all_read ? 0 : kExitFailure;
}

// The image to send: the payload of a package the library accepted, or, only when
// the operator asked for it by name, the unsigned file itself.
std::optional<std::string> image_to_send(uint32_t card, const PrivateCopy &copy) {
    const McuArgs &args = mcu_args();
    if (args.unsigned_image) {
        std::fprintf(stderr,
                     "tavoctl: warning: sending %s WITHOUT signature verification "
                     "(--unsigned-image)\n",
                     args.file.c_str());
        audit("mcu upgrade", "card " + std::to_string(card) + ": unsigned image " + args.file +
                                 " accepted without verification");
        return copy.file();
    }
    Verdict verdict = verify_package(copy.file());
    audit("mcu upgrade",
          "card " + std::to_string(card) + ": package " + args.file + " " + describe(verdict));
    std::printf("package %s: %s\n", args.file.c_str(), describe(verdict).c_str());
    if (!verdict.accepted) {
        std::fprintf(stderr, "tavoctl: nothing was sent to card %u\n", card);
        return std::nullopt;
    }
    std::string payload = copy.directory() + "/payload";
    std::string error;
    if (!extract_payload(copy.file(), payload, error)) {
        std::fprintf(stderr, "tavoctl: %s\n", error.c_str());
        return std::nullopt;
    }
    return payload;
}

// The status bytes belong to the MCU firmware: read until they settle.
int settled_upgrade_status(uint32_t card, std::array<uint8_t, 2> &status) {
    std::optional<std::array<uint8_t, 2>> last;
    for (int poll = 0; poll < kStatusPolls; ++poll) {
        std::array<uint8_t, 2> now{};
        int ret = tavo_mcu_get_upgrade_statues(card, &now[0], &now[1]);
        if (ret != 0) {
            return ret;
        }
        if (last == now) {
            break;
        }
        last = now;
        usleep(kStatusPollPauseUs);
    }
    status = *last;
    return 0;
}

int mcu_upgrade(uint32_t card) {
    const McuArgs &args = mcu_args();
    PrivateCopy copy(args.file);
    if (!copy.ok()) {
        std::fprintf(stderr, "tavoctl: %s\n", copy.error().c_str());
        return kExitFailure;
    }
    std::optional<std::string> image = image_to_send(card, copy);
    if (!image) {
        return kExitFailure;
    }
    if (args.dry_run) {
        std::printf(
            "dry run: would send the payload to the MCU of card %u and start the "
            "upgrade with control %u\n",
            card, args.control);
        return 0;
    }
    int ret = tavo_mcu_upgrade_transfile(card, image->c_str());
    std::fflush(stdout);
    if (ret != 0) {
        audit("mcu upgrade", "card " + std::to_string(card) + ": transfer failed");
        return fail("tavo_mcu_upgrade_transfile", ret);
    }
    audit("mcu upgrade", "card " + std::to_string(card) + ": image sent");
    std::printf("\nimage sent to the MCU of card %u\n", card);
    ret = tavo_mcu_upgrade_control(card, args.control);
    if (ret != 0) {
        audit("mcu upgrade", "card " + std::to_string(card) + ": start failed");
        return fail("tavo_mcu_upgrade_control", ret);
    }
    audit("mcu upgrade", "card " + std::to_string(card) + ": upgrade started, control " +
                             std::to_string(args.control));
    std::array<uint8_t, 2> status{};
    ret = settled_upgrade_status(card, status);
    if (ret != 0) {
        return fail("tavo_mcu_get_upgrade_statues", ret);
    }
    audit("mcu upgrade", "card " + std::to_string(card) + ": status " + std::to_string(status[0]) +
                             " " + std::to_string(status[1]));
    std::printf("upgrade started; status: %u %u\n", static_cast<unsigned>(status[0]),
                static_cast<unsigned>(status[1]));
    return 0;
}

std::optional<LogType> parse_log_type(const std::string &text) {
    for (const LogType &t : kLogTypes) {
        if (text == t.name || text == t.file_name || text == std::to_string(t.type)) {
            return t;
        }
    }
    return std::nullopt;
}

// The newest file the collection of `type` made for `card`.
std::optional<std::filesystem::path> newest_log(const LogType &type, uint32_t card) {
    std::string prefix = std::string(type.file_name) + "_" + std::to_string(card) + "_";
    std::optional<std::filesystem::path> newest;
    std::error_code ec;
    for (const auto &entry : std::filesystem::directory_iterator(TAVO_MCU_LOG_DIR, ec)) {
        std::string name = entry.path().filename().string();
        if (name.starts_with(prefix) && (!newest || name > newest->filename().string())) {
            newest = entry.path();
        }
    }
    return newest;
}

int mcu_log(uint32_t card) {
    std::optional<LogType> type = parse_log_type(mcu_args().log_type);
    if (!type) {
        std::fprintf(stderr, "tavoctl: unknown log type \"%s\" (error, operate, maintenance)\n",
                     mcu_args().log_type.c_str());
        return kExitFailure;
    }
    int ret = tavo_mcu_collect_log(card, type->type);
    std::fflush(stdout);
    if (ret != 0) {
        return fail("tavo_mcu_collect_log", ret);
    }
    if (std::optional<std::filesystem::path> file = newest_log(*type, card)) {
        std::printf("saved in %s\n", file->c_str());
    }
    return 0;
}

int mcu_check(const Options &options, uint32_t card) {
    std::array<uint32_t, TAVO_MCU_CHECK_FLAG_COUNT> flags{};
    (void)tavo_mcu_check_i2c(card, flags.data());
    std::printf("\n");
    nlohmann::json names = nlohmann::json::array();
    for (int k = 0; k < 4; ++k) {
        if (flags[TAVO_MCU_CHECK_MINI0 + k] != 0) {
            names.push_back("MINI" + std::to_string(k));
        }
    }
    bool slot1 = flags[TAVO_MCU_CHECK_SLOT1_FAILED] != 0;
    bool slot3 = flags[TAVO_MCU_CHECK_SLOT3_FAILED] != 0;
    if (options.json) {
        print_json({{"card_id", card},
                    {"slot1_link_failed", slot1},
                    {"slot3_link_failed", slot3},
                    {"report_names", names}});
        return 0;
    }
    Table table({"CHECK", "RESULT"});
    table.add({"link through chip slot 1", slot1 ? "failed" : "ok"});
    table.add({"link through chip slot 3", slot3 ? "failed" : "ok"});
    table.add({"chips named in the MCU's report", names.empty() ? "-" : as_text(names)});
    table.print();
    return 0;
}

int mcu_boot_area(const Options &options, uint32_t card) {
    uint32_t before = 0;
    int ret = tavo_mcu_get_boot_area(card, &before);
    if (ret != 0) {
        return fail("tavo_mcu_get_boot_area", ret);
    }
    uint32_t after = before;
    if (mcu_args().switch_area) {
        ret = tavo_mcu_set_boot_area(card);
        if (ret != 0) {
            return fail("tavo_mcu_set_boot_area", ret);
        }
        ret = tavo_mcu_get_boot_area(card, &after);
        if (ret != 0) {
            return fail("tavo_mcu_get_boot_area", ret);
        }
    }
    if (options.json) {
        print_json({{"card_id", card}, {"boot_area", after}, {"switched", mcu_args().switch_area}});
    } else if (mcu_args().switch_area) {
        std::printf("boot area: %u -> %u\n", before, after);
    } else {
        std::printf("boot area: %u\n", after);
    }
    return 0;
}

void add_card_option(CLI::App *sub) {
    sub->add_option("--card", mcu_args().card, "card id (default: the first card with an MCU)");
}

}  // namespace

CLI::App *add_mcu_command(CLI::App &app, Options &options) {
    McuArgs &args = mcu_args();
    CLI::App *mcu = app.add_subcommand("mcu", "the card's MCU: items, firmware, logs, links");
    mcu->require_subcommand(1);
    args.info = mcu->add_subcommand("info", "every item the MCU reports");
    args.info->add_option("CARD", args.card, "card id (default: the first card with an MCU)");
    args.upgrade = mcu->add_subcommand(
        "upgrade", "verify an upgrade package, send its firmware and start the upgrade");
    add_card_option(args.upgrade);
    args.upgrade->add_option("PACKAGE", args.file, "signed upgrade package")->required();
    args.upgrade->add_flag("--dry-run", args.dry_run,
                           "verify the package and say what would be done, send nothing");
    args.upgrade->add_flag("--unsigned-image", args.unsigned_image,
                           "send PACKAGE as a raw image without any signature check");
    args.upgrade->add_option("--control", args.control,
                             "upgrade control value sent after the "
                             "image (default 1)");
    args.log = mcu->add_subcommand("log", "download one of the MCU's logs to " TAVO_MCU_LOG_DIR);
    add_card_option(args.log);
    args.log->add_option("TYPE", args.log_type, "error, operate or maintenance (or 0, 1, 2)")
        ->required();
    args.check = mcu->add_subcommand("check-i2c", "self-test of the MCU's I2C links to the chips");
    add_card_option(args.check);
    args.boot_area = mcu->add_subcommand("boot-area", "show (or switch) the MCU's boot area");
    add_card_option(args.boot_area);
    args.boot_area->add_flag("--switch", args.switch_area, "ask the MCU to switch its boot area");
    for (CLI::App *sub : {args.info, args.check, args.boot_area}) {
        sub->add_flag("--json", options.json, "print one JSON document instead of text");
    }
    return mcu;
}

int run_mcu(const Options &options) {
    const McuArgs &args = mcu_args();
    int status = 0;
    std::optional<uint32_t> card = choose_card(status);
    if (!card) {
        return kExitFailure;
    }
    if (args.info->parsed()) {
        return mcu_info(options, *card);
    }
    if (args.upgrade->parsed()) {
        return mcu_upgrade(*card);
    }
    if (args.log->parsed()) {
        return mcu_log(*card);
    }
    if (args.check->parsed()) {
        return mcu_check(options, *card);
    }
    return mcu_boot_area(options, *card);
}

}  // namespace tavoctl
