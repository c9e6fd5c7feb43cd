// Parsing and checking host descriptions, and the model behind the C functions.
#include "host_parse.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace tavo::sim {
namespace {

// A one-chip host whose chip is described by `chip`.
std::string one_chip(const std::string &chip) {
    return R"({"cards": [{"chips": [)" + chip + "]}]}";
}

std::string many_chips(std::size_t count) {
    std::string chips;
    for (std::size_t i = 0; i < count; ++i) {
        chips += i == 0 ? "{}" : ", {}";
    }
    return one_chip(chips);
}

std::string many_error_codes(std::size_t count) {
    std::string codes;
    for (std::size_t i = 0; i < count; ++i) {
        codes += (i == 0 ? "" : ", ") + std::to_string(i + 1);
    }
    return one_chip(R"({"error_codes": [)" + codes + "]}");
}

std::string refusal(const std::string &text) {
    try {
        load_host_text(text);
    } catch (const HostError &e) {
        return e.what();
    }
    return "(accepted)";
}

TEST(DefaultHost, DescribesFourSingleChipCardsInServerSlots) {
    Host host = load_default_host();
    ASSERT_EQ(host.chips.size(), 4u);
    ASSERT_EQ(host.cards.size(), 4u);
    for (std::size_t i = 0; i < host.chips.size(); ++i) {
        const Chip &chip = host.chips[i];
        EXPECT_EQ(chip.logic_id, i);
        EXPECT_EQ(chip.card, i) << "each card carries one chip";
        EXPECT_EQ(host.cards[i].slot_id, i + 1);
        EXPECT_EQ(host.cards[i].board_id, 1u);
        EXPECT_GE(chip.temperature, 40);
        EXPECT_LE(chip.temperature, 60);
        EXPECT_GE(chip.voltage, 80u);
        EXPECT_LE(chip.voltage, 90u);
        EXPECT_EQ(chip.memory.memory_size, 16384u);
        EXPECT_EQ(chip.hbm.memory_size, 32768u);
        EXPECT_EQ(chip.user_config.at(kSshStatusItem).max_size, 1u);
        EXPECT_TRUE(chip.component_versions.contains(8));
        for (std::uint32_t code : chip.error_codes) {
            EXPECT_TRUE(chip.error_strings.contains(code)) << "code " << code << " has no text";
        }
    }
    auto with_errors = std::count_if(host.chips.begin(), host.chips.end(),
                                     [](const Chip &c) { return !c.error_codes.empty(); });
    EXPECT_EQ(with_errors, 1);
    EXPECT_TRUE(host.files.contains("/run/board_cfg.ini"));
}

TEST(Defaults, LogicIdsAndBusesFollowThePositionAcrossCards) {
    Host host = load_host_text(R"({"cards": [{"chips": [{}, {}]}, {"chips": [{}]}]})");
    ASSERT_EQ(host.chips.size(), 3u);
    for (std::uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(host.chips[i].logic_id, i);
        EXPECT_EQ(host.chips[i].pcie.bdf_bus, i + 1);
        EXPECT_EQ(host.chips[i].die.soc_die[4], i);
    }
    EXPECT_EQ(host.chips[1].card, 0u);
    EXPECT_EQ(host.chips[2].card, 1u);
    EXPECT_EQ(host.cards[1].slot_id, 1u);
    EXPECT_FALSE(host.chips[0].system_time.has_value());
}

TEST(Defaults, UserConfigKeepsSshStatusAndDecodesHexAndText) {
    Host host = load_host_text(one_chip(
        R"({"user_config": {"a": {"max_size": 4, "hex": "00fF7a"}, "b": {"max_size": 2, "value": "hi"}, "c": {"max_size": 8}}})"));
    const auto &items = host.chips[0].user_config;
    ASSERT_TRUE(items.contains(kSshStatusItem));
    EXPECT_EQ(items.at(kSshStatusItem).max_size, 1u);
    EXPECT_TRUE(items.at("c").value.empty());
    EXPECT_EQ(items.at("a").value, (std::vector<std::uint8_t>{0x00, 0xff, 0x7a}));
    EXPECT_EQ(items.at("b").value, (std::vector<std::uint8_t>{'h', 'i'}));
}

struct Malformed {
    const char *name;
    std::string text;
    std::string message;  // the whole message, or its start when it ends with "..."
};

void PrintTo(const Malformed &m, std::ostream *os) {
    *os << m.name;
}

class MalformedHost : public testing::TestWithParam<Malformed> {};

TEST_P(MalformedHost, IsRefusedWithItsPathAndProblem) {
    const Malformed &m = GetParam();
    std::string message = refusal(m.text);
    EXPECT_EQ(message.find('\n'), std::string::npos) << "one line";
    if (m.message.ends_with("...")) {
        EXPECT_TRUE(message.starts_with(m.message.substr(0, m.message.size() - 3))) << message;
    } else {
        EXPECT_EQ(message, m.message);
    }
}

const std::string kChip = "<text>: cards[0].chips[0]";

INSTANTIATE_TEST_SUITE_P(
    Table, MalformedHost,
    testing::Values(
        Malformed{"InvalidJson", R"({"cards": [)", "<text>: invalid JSON: parse error..."},
        Malformed{"TopNotObject", "[]", "<text>: expected an object"},
        Malformed{"CardsMissing", "{}", "<text>: cards: missing"},
        Malformed{"NameTooLong", R"({"cards": [], "name": ")" + std::string(65, 'n') + "\"}",
                  "<text>: name: text longer than 64 bytes"},
        Malformed{"ChipsEmpty", R"({"cards": [{"chips": []}]})",
                  "<text>: cards[0].chips: a card carries at least one chip"},
        Malformed{"TextForInteger", one_chip(R"({"temperature": "hot"})"),
                  kChip + ".temperature: expected an integer"},
        Malformed{"NegativeUnsigned", one_chip(R"({"voltage": -1})"),
                  kChip + ".voltage: out of range (0..4294967295)"},
        Malformed{"Int32Overflow", one_chip(R"({"temperature": 2147483648})"),
                  kChip + ".temperature: out of range (-2147483648..2147483647)"},
        Malformed{"Uint8Overflow", one_chip(R"({"heartbeat": {"status": 256}})"),
                  kChip + ".heartbeat.status: out of range (0..255)"},
        Malformed{"UnknownChipKey", one_chip(R"({"temprature": 40})"),
                  kChip + ".temprature: unknown key"},
        Malformed{"DuplicateJsonKey", one_chip(R"({"temperature": 40, "temperature": 41})"),
                  kChip + ": duplicate key \"temperature\""},
        Malformed{"DuplicateLogicId", one_chip(R"({"logic_id": 0}, {"logic_id": 0})"),
                  "<text>: cards[0].chips[1].logic_id: logic id 0 already used by "
                  "cards[0].chips[0]"},
        Malformed{"DefaultLogicIdTaken",
                  R"({"cards": [{"chips": [{"logic_id": 1}]}, {"chips": [{}]}]})",
                  "<text>: cards[1].chips[0]: logic id 1 already used by cards[0].chips[0]"},
        Malformed{"TooManyChips", many_chips(kMaxChips + 1),
                  "<text>: cards[0].chips[128]: more than 128 chips in the host"},
        Malformed{"ChipTextTooLong",
                  one_chip(R"({"chip": {"name": ")" + std::string(32, 'x') + "\"}}"),
                  kChip + ".chip.name: text longer than 31 bytes"},
        Malformed{"ErrorTextTooLong",
                  one_chip(R"({"error_strings": {"7": ")" + std::string(256, 'e') + "\"}}"),
                  kChip + ".error_strings[\"7\"]: text longer than 255 bytes"},
        Malformed{"DieShort", one_chip(R"({"die": [1, 2, 3, 4]})"),
                  kChip + ".die: expected an array of 5 integers"},
        Malformed{"TooManyErrorCodes", many_error_codes(kMaxErrorCodes + 1),
                  kChip + ".error_codes: at most 128 error codes"},
        Malformed{"KindNotNumber", one_chip(R"({"frequency": {"x": 1}})"),
                  kChip + ".frequency[\"x\"]: key must be a decimal number"},
        Malformed{"ComponentOutOfRange", one_chip(R"({"component_versions": {"256": "1"}})"),
                  kChip + ".component_versions[\"256\"]: key out of range (0..255)"},
        Malformed{"SensorArrayLength", one_chip(R"({"soc_sensors": {"0": {"temp": [1, 2, 3]}}})"),
                  kChip + ".soc_sensors[\"0\"].temp: expected an array of 2 integers"},
        Malformed{"SensorTwoMembers", one_chip(R"({"soc_sensors": {"0": {"uint": 1, "iint": 2}}})"),
                  kChip + ".soc_sensors[\"0\"]: expected one of uchar, ushort, uint, iint, temp, "
                          "ntc_tmp, data"},
        Malformed{"ConfigValueTooLong",
                  one_chip(R"({"user_config": {"a": {"max_size": 3, "value": "abcd"}}})"),
                  kChip + ".user_config[\"a\"]: value longer than max_size (3 bytes)"},
        Malformed{"ConfigValueAndHex",
                  one_chip(R"({"user_config": {"a": {"max_size": 3, "value": "a", "hex": "61"}}})"),
                  kChip + ".user_config[\"a\"]: give either value or hex, not both"},
        Malformed{"ConfigOddHex",
                  one_chip(R"({"user_config": {"a": {"max_size": 3, "hex": "abc"}}})"),
                  kChip + ".user_config[\"a\"].hex: expected an even number of hexadecimal digits"},
        Malformed{"ConfigNoMaxSize", one_chip(R"({"user_config": {"a": {"value": "x"}}})"),
                  kChip + ".user_config[\"a\"].max_size: missing"},
        Malformed{"ConfigZeroMaxSize", one_chip(R"({"user_config": {"a": {"max_size": 0}}})"),
                  kChip + ".user_config[\"a\"].max_size: out of range (1..65536)"},
        Malformed{"FailUnknownFunction", one_chip(R"({"fail": {"rumo_get_bord_info": 3}})"),
                  kChip + ".fail[\"rumo_get_bord_info\"]: unknown function"},
        Malformed{"FailCodeZero", one_chip(R"({"fail": {"rumo_get_board_info": 0}})"),
                  kChip + ".fail[\"rumo_get_board_info\"]: a failure code must not be 0"},
        Malformed{"FailHostFunction", one_chip(R"({"fail": {"rumo_list_device": 3}})"),
                  kChip + ".fail[\"rumo_list_device\"]: this function addresses no chip"},
        Malformed{"FileOutsideHost", R"({"cards": [], "files": {"/home/x": ""}})",
                  "<text>: files[\"/home/x\"]: path must start with /run/, /etc/usr/, /tmp/ or "
                  "/var/log/"},
        Malformed{"FileEscapes", R"({"cards": [], "files": {"/run/../etc/passwd": ""}})",
                  "<text>: files[\"/run/../etc/passwd\"]: path must name a file..."},
        Malformed{"FileNotText", R"({"cards": [], "files": {"/run/a": 1}})",
                  "<text>: files[\"/run/a\"]: expected a string"}),
    [](const testing::TestParamInfo<Malformed> &p) { return std::string(p.param.name); });

TEST(HostFile, MessagesNameTheFile) {
    test::TempDir dir;
    std::string bad = dir.write("host.json", one_chip(R"({"temperature": [1]})"));
    std::string missing = dir.path() + "/absent.json";
    try {
        load_host_file(bad);
        ADD_FAILURE() << "accepted";
    } catch (const HostError &e) {
        EXPECT_EQ(std::string(e.what()),
                  bad + ": cards[0].chips[0].temperature: expected an integer");
    }
    try {
        load_host_file(missing);
        ADD_FAILURE() << "accepted";
    } catch (const HostError &e) {
        EXPECT_EQ(std::string(e.what()), missing + ": cannot read: No such file or directory");
    }
    EXPECT_THROW(load_host_file(dir.path()), HostError) << "a directory is no description";
}

}  // namespace
}  // namespace tavo::sim
