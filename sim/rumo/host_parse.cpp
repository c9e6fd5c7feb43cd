#include "host_parse.h"

#include "chip_fields.h"
#include "default_host.h"
#include "mcu_fields.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

namespace tavo::sim {

namespace {

constexpr std::array<std::string_view, 4> kFilePrefixes = {"/run/", "/etc/usr/", "/tmp/",
                                                           "/var/log/"};

bool has_dot_segment(std::string_view path) {
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        std::string_view segment = path.substr(start, end - start);
        if (segment == "." || segment == "..") {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// A file that tavo-sim writes into the private host: only below the directories
// that the simulated host makes private.
void check_file_path(const std::string &file, const std::string &path) {
    bool allowed = false;
    for (std::string_view prefix : kFilePrefixes) {
        allowed = allowed || (file.starts_with(prefix) && file.size() > prefix.size());
    }
    if (!allowed) {
        throw DescriptionError(path, "path must start with /run/, /etc/usr/, /tmp/ or /var/log/");
    }
    if (file.back() == '/' || file.find("//") != std::string::npos || has_dot_segment(file) ||
        file.size() > kMaxFilePath || file.find('\0') != std::string::npos) {
        throw DescriptionError(path,
                               "path must name a file without ., .. or empty segments (at most " +
                                   std::to_string(kMaxFilePath) + " bytes)");
    }
}

std::map<std::string, std::string> read_files(const json &value, const std::string &path) {
    require_object(value, path);
    std::map<std::string, std::string> files;
    for (const auto &[file, content] : value.items()) {
        std::string item_path = entry_path(path, file);
        check_file_path(file, item_path);
        files[file] = read_text(content, item_path, kMaxFileSize);
    }
    return files;
}

constexpr std::array<Field<Card>, 6> kCardFields{{
    {"slot_id", &set_int<&Card::slot_id>},
    {"board_id", &set_int<&Card::board_id>},
    {"pcb_id", &set_int<&Card::pcb_id>},
    {"bom_id", &set_int<&Card::bom_id>},
    // Read by read_cards, which numbers the chips across the host.
    {"chips", [](Card &, const json &, const std::string &) {}},
    // Read by read_cards once the card's chips are known.
    {"mcu", [](Card &, const json &, const std::string &) {}},
}};

// Remembers where each logic id was first used.
class LogicIds {
  public:
    void add(const Chip &chip, const json &description, const std::string &path) {
        auto [it, fresh] = first_use_.try_emplace(chip.logic_id, path);
        if (!fresh) {
            std::string at =
                description.contains("logic_id") ? member_path(path, "logic_id") : path;
            throw DescriptionError(
                at, "logic id " + std::to_string(chip.logic_id) + " already used by " + it->second);
        }
    }

  private:
    std::map<std::uint32_t, std::string> first_use_;
};

void read_chips(Host &host, const json &card, const std::string &path, LogicIds &ids) {
    auto it = card.find("chips");
    if (it == card.end()) {
        throw DescriptionError(member_path(path, "chips"), "missing");
    }
    std::string chips_path = member_path(path, "chips");
    require_array(*it, chips_path);
    if (it->empty()) {
        throw DescriptionError(chips_path, "a card carries at least one chip");
    }
    for (std::size_t i = 0; i < it->size(); ++i) {
        std::string chip_path = element_path(chips_path, i);
        if (host.chips.size() == kMaxChips) {
            throw DescriptionError(chip_path,
                                   "more than " + std::to_string(kMaxChips) + " chips in the host");
        }
        Chip chip = parse_chip((*it)[i], chip_path, host.chips.size());
        ids.add(chip, (*it)[i], chip_path);
        chip.card = host.cards.size() - 1;
        host.chips.push_back(std::move(chip));
    }
}

void read_cards(Host &host, const json &value, const std::string &path) {
    require_array(value, path);
    LogicIds ids;
    for (std::size_t i = 0; i < value.size(); ++i) {
        std::string card_path = element_path(path, i);
        Card card{static_cast<std::uint32_t>(i), 1, 2, 5, std::nullopt};
        read_fields(card, value[i], card_path, kCardFields);
        host.cards.push_back(card);
        std::size_t first_chip = host.chips.size();
        read_chips(host, value[i], card_path, ids);
        if (auto mcu = value[i].find("mcu"); mcu != value[i].end()) {
            host.cards.back().mcu = parse_mcu(*mcu, member_path(card_path, "mcu"), card,
                                              host.chips.size() - first_chip);
        }
    }
}

// Sections that describe emulated hardware outside the device-management library; tavo-sim
// reads and checks them.
void emulator_section(Host &, const json &, const std::string &) {}

constexpr std::array<Field<Host>, 9> kHostFields{{
    {"name",
     [](Host &h, const json &v, const std::string &p) { h.name = read_text(v, p, kMaxHostName); }},
    {"files", [](Host &h, const json &v, const std::string &p) { h.files = read_files(v, p); }},
    {"cards", [](Host &h, const json &v, const std::string &p) { read_cards(h, v, p); }},
    {"i2c", emulator_section},
    {"ipmi", emulator_section},
    {"pci", emulator_section},
    {"dmidecode", emulator_section},
    {"memory_map", emulator_section},
    {"proc_files", emulator_section},
}};

std::string read_whole_file(const std::string &path) {
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"),
                                                          &std::fclose);
    if (!file) {
        throw HostError(path + ": cannot read: " + std::strerror(errno));
    }
    std::string text;
    std::array<char, 4096> chunk{};
    std::size_t got = 0;
    while ((got = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0) {
        text.append(chunk.data(), got);
    }
    if (std::ferror(file.get()) != 0) {
        throw HostError(path + ": cannot read: " + std::strerror(errno));
    }
    return text;
}

Host load_with_source(std::string_view source, std::string_view text) {
    try {
        return parse_host(parse_json_text(text));
    } catch (const DescriptionError &e) {
        throw HostError(std::string(source) + ": " + e.what());
    }
}

}  // namespace

Host parse_host(const json &root) {
    require_object(root, {});
    if (!root.contains("cards")) {
        throw DescriptionError("cards", "missing");
    }
    Host host;
    read_fields(host, root, {}, kHostFields);
    return host;
}

Host load_host_text(std::string_view text, std::string_view source) {
    return load_with_source(source, text);
}

Host load_host_file(const std::string &path) {
    return load_with_source(path, read_whole_file(path));
}

Host load_default_host() {
    return load_with_source("<default>", default_host_json());
}

}  // namespace tavo::sim
