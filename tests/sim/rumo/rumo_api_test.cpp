// The C functions of librumo.so.1 against the built-in default host.
#include <rumo/rumo.h>
#include <rumo/rumo_sim.h>

#include "rumo_sim_codes.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// Chip 2 of the default host is the one with error codes and texts.
constexpr uint32_t kErrorChip = 2;
constexpr uint32_t kErrorCode = 0x81A30001u;
constexpr const char *kErrorText = "HBM single-bit ECC errors above the warning threshold";
constexpr unsigned char kCanary = 0xA5;

class RumoApi : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(rumo_sim_load_default(), 0); }
};

// One call of every function: valid arguments on `logic_id`, or a null pointer
// (an invalid value where the function takes no pointer) when `null_arg`.
struct Call {
    const char *name;
    int (*invoke)(uint32_t logic_id, bool null_arg);
    int normal;  // answer with valid arguments on kErrorChip
    int with_null;
};

// Invokers of the functions whose only output is one record.
template <class T, int (*F)(uint32_t, T *)>
int out(uint32_t id, bool null_arg) {
    T value{};
    return F(id, null_arg ? nullptr : &value);
}

template <class T, int (*F)(uint32_t, uint32_t, T *), uint32_t Item>
int item_out(uint32_t id, bool null_arg) {
    T value{};
    return F(id, Item, null_arg ? nullptr : &value);
}

int device_count(uint32_t, bool n) {
    int32_t count = 0;
    return rumo_get_device_count(n ? nullptr : &count);
}

int list_device(uint32_t, bool n) {
    std::array<uint32_t, RUMO_MAX_DEVICES> ids{};
    return rumo_list_device(n ? nullptr : ids.data(), RUMO_MAX_DEVICES);
}

int errorcode(uint32_t id, bool n) {
    int32_t count = 0;
    std::array<uint32_t, RUMO_MAX_ERROR_CODES> codes{};
    return rumo_get_device_errorcode(id, n ? nullptr : &count, codes.data());
}

int errorstring(uint32_t id, bool n) {
    std::array<unsigned char, 256> text{};
    return rumo_query_errorstring(id, kErrorCode, n ? nullptr : text.data(), 256);
}

int get_version(uint32_t id, bool n) {
    std::array<char, 64> text{};
    uint32_t length = 0;
    return rumo_get_version(id, n ? nullptr : text.data(), 64, &length);
}

int component_version(uint32_t id, bool n) {
    std::array<unsigned char, 64> text{};
    uint32_t length = 0;
    return rumo_upgrade_get_component_static_version(id, 8, text.data(), 64, n ? nullptr : &length);
}

int set_config(uint32_t id, bool n) {
    const unsigned char value[] = {'a', 'b', 'c'};
    return rumo_set_user_config(id, n ? nullptr : "user_label", 3, value);
}

int get_config(uint32_t id, bool n) {
    std::array<unsigned char, 64> buffer{};
    return rumo_get_user_config(id, "user_label", 64, n ? nullptr : buffer.data());
}

int clear_config(uint32_t id, bool n) {
    return rumo_clear_user_config(id, n ? nullptr : "user_label");
}

int ssh_enable(uint32_t id, bool n) {
    return rumo_config_ssh_enable(id, n ? 2 : 1);
}

int pre_reset(uint32_t id, bool) {
    return rumo_pre_reset_soc(id);
}

int passthru(uint32_t id, bool n) {
    std::vector<unsigned char> record(RUMO_PASSTHRU_RECORD_SIZE);
    return rumo_passthru_mcu(id, n ? nullptr : record.data());
}

int heartbeat(uint32_t id, bool n) {
    uint8_t status = 0;
    uint32_t counter = 0;
    return rumo_get_mini2mcu_heartbeat_status(id, n ? nullptr : &status, &counter);
}

const Call kCalls[] = {
    {"rumo_get_device_count", device_count, 0, 1},
    {"rumo_list_device", list_device, 0, 1},
    {"rumo_get_board_info", out<rumo_board_info, rumo_get_board_info>, 0, 1},
    {"rumo_get_chip_info", out<rumo_chip_info, rumo_get_chip_info>, 0, 1},
    {"rumo_get_pcie_info", out<rumo_pcie_info, rumo_get_pcie_info>, 0, 1},
    {"rumo_get_device_temperature", out<int32_t, rumo_get_device_temperature>, 0, 1},
    {"rumo_get_device_voltage", out<uint32_t, rumo_get_device_voltage>, 0, 1},
    {"rumo_get_device_power_info", out<uint32_t, rumo_get_device_power_info>, 0, 1},
    {"rumo_get_device_frequency", item_out<uint32_t, rumo_get_device_frequency, 1>, 0, 1},
    {"rumo_get_device_utilization_rate", item_out<uint32_t, rumo_get_device_utilization_rate, 1>, 0,
     1},
    {"rumo_get_device_die", out<rumo_die_id, rumo_get_device_die>, 0, 1},
    {"rumo_get_device_ndie", out<rumo_die_id, rumo_get_device_ndie>, 0, 1},
    {"rumo_get_aicore_info", out<rumo_aicore_info, rumo_get_aicore_info>, 0, 1},
    {"rumo_get_soc_sensor_info", item_out<rumo_sensor_info, rumo_get_soc_sensor_info, 0>, 0, 1},
    {"rumo_get_system_time", out<uint32_t, rumo_get_system_time>, 0, 1},
    {"rumo_get_memory_info", out<rumo_memory_info, rumo_get_memory_info>, 0, 1},
    {"rumo_get_hbm_info", out<rumo_hbm_info, rumo_get_hbm_info>, 0, 1},
    {"rumo_get_ecc_info", item_out<rumo_ecc_info, rumo_get_ecc_info, 1>, 0, 1},
    {"rumo_get_device_flash_count", out<uint32_t, rumo_get_device_flash_count>, 0, 1},
    {"rumo_get_device_flash_info", item_out<rumo_flash_info, rumo_get_device_flash_info, 0>, 0, 1},
    {"rumo_get_device_health", out<uint32_t, rumo_get_device_health>, 0, 1},
    {"rumo_get_device_errorcode", errorcode, 0, 1},
    {"rumo_query_errorstring", errorstring, 0, 1},
    {"rumo_get_version", get_version, 0, 1},
    {"rumo_upgrade_get_component_static_version", component_version, 0, 1},
    {"rumo_set_user_config", set_config, 0, 1},
    {"rumo_get_user_config", get_config, 0, 1},
    {"rumo_clear_user_config", clear_config, 0, 1},
    {"rumo_config_ssh_enable", ssh_enable, 0, 1},
    {"rumo_get_ssh_enable", out<uint32_t, rumo_get_ssh_enable>, 0, 1},
    {"rumo_pre_reset_soc", pre_reset, 0, 0},
    {"rumo_passthru_mcu", passthru, RUMO_SIM_ERR_NO_MCU, 1},
    {"rumo_get_mini2mcu_heartbeat_status", heartbeat, 0, 1},
};

// All but the two functions that list the host.
std::vector<Call> chip_calls() {
    return {std::begin(kCalls) + 2, std::end(kCalls)};
}

uint32_t total_calls() {
    uint32_t total = 0;
    for (const Call &call : kCalls) {
        total += rumo_sim_call_count(call.name);
    }
    return total;
}

void PrintTo(const Call &c, std::ostream *os) {
    *os << c.name;
}

class EveryFunction : public RumoApi, public testing::WithParamInterface<Call> {};

TEST_P(EveryFunction, CountsItsOwnCallsOnly) {
    const Call &call = GetParam();
    rumo_sim_reset_counts();
    EXPECT_EQ(call.invoke(kErrorChip, false), call.normal);
    EXPECT_EQ(call.invoke(kErrorChip, true), call.with_null);
    EXPECT_EQ(rumo_sim_call_count(call.name), 2u);
    EXPECT_EQ(total_calls(), 2u);
}

TEST_P(EveryFunction, InjectedFailuresCountDownThenCallsSucceed) {
    const Call &call = GetParam();
    ASSERT_EQ(rumo_sim_fail_next(call.name, 2, 77), 0);
    EXPECT_EQ(call.invoke(kErrorChip, false), 77);
    EXPECT_EQ(call.invoke(99, false), 77) << "whatever chip is addressed";
    EXPECT_EQ(call.invoke(kErrorChip, false), call.normal);
}

INSTANTIATE_TEST_SUITE_P(Table, EveryFunction, testing::ValuesIn(kCalls),
                         [](const testing::TestParamInfo<Call> &p) {
                             return std::string(p.param.name);
                         });

class EveryChipFunction : public RumoApi, public testing::WithParamInterface<Call> {};

TEST_P(EveryChipFunction, UnknownAndHiddenChipsAreNoDevice) {
    const Call &call = GetParam();
    EXPECT_EQ(call.invoke(99, false), RUMO_SIM_ERR_NO_DEVICE);
    ASSERT_EQ(rumo_sim_set_device_count(2), 0);
    EXPECT_EQ(call.invoke(kErrorChip, false), RUMO_SIM_ERR_NO_DEVICE);
    EXPECT_NE(call.invoke(1, false), RUMO_SIM_ERR_NO_DEVICE) << "shown chips still answer";
}

TEST_P(EveryChipFunction, DescribedFailureHitsOnlyItsChip) {
    const Call &call = GetParam();
    std::string fail = std::string("{\"") + call.name + "\": 42}";
    ASSERT_EQ(rumo_sim_set_value(kErrorChip, "fail", fail.c_str()), 0);
    EXPECT_EQ(call.invoke(kErrorChip, false), 42);
    EXPECT_EQ(call.invoke(kErrorChip, false), 42) << "persistent";
    EXPECT_NE(call.invoke(0, false), 42);
}

INSTANTIATE_TEST_SUITE_P(Table, EveryChipFunction, testing::ValuesIn(chip_calls()),
                         [](const testing::TestParamInfo<Call> &p) {
                             return std::string(p.param.name);
                         });

TEST_F(RumoApi, ListDeviceFillsAtMostCount) {
    std::array<uint32_t, 4> ids;
    ids.fill(0xDEADBEEF);
    ASSERT_EQ(rumo_list_device(ids.data(), 2), 0);
    EXPECT_EQ(ids[1], 1u);
    EXPECT_EQ(ids[2], 0xDEADBEEF);
    EXPECT_EQ(rumo_list_device(ids.data(), -1), RUMO_SIM_ERR_INVALID_ARGUMENT);
}

TEST_F(RumoApi, DeviceCountLimitsAndRestores) {
    struct Step {
        int32_t limit;
        int result;
        int32_t reported;
    };
    for (Step step :
         {Step{2, 0, 2}, Step{0, 0, 0}, Step{5, -1, 0}, Step{-2, -1, 0}, Step{-1, 0, 4}}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(rumo_sim_set_device_count(step.limit), step.result) << step.limit;
        std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(err.empty(), step.result == 0) << err;
        int32_t count = -1;
        ASSERT_EQ(rumo_get_device_count(&count), 0);
        EXPECT_EQ(count, step.reported) << "after limit " << step.limit;
    }
}

TEST_F(RumoApi, LoadingStartsAfresh) {
    ASSERT_EQ(rumo_sim_fail_next("rumo_get_device_count", 5, 9), 0);
    ASSERT_EQ(rumo_sim_set_device_count(1), 0);
    ASSERT_EQ(rumo_sim_set_value(0, "temperature", "99"), 0);
    ASSERT_EQ(rumo_sim_load_default(), 0);
    EXPECT_EQ(rumo_sim_call_count("rumo_get_device_count"), 0u);
    int32_t count = 0;
    EXPECT_EQ(rumo_get_device_count(&count), 0);
    EXPECT_EQ(count, 4);
    int32_t temperature = 0;
    ASSERT_EQ(rumo_get_device_temperature(0, &temperature), 0);
    EXPECT_EQ(temperature, 44);
}

TEST_F(RumoApi, RefusedLoadKeepsTheHostAndSaysWhy) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(rumo_sim_load_host_text(R"({"cards": [{"chips": [{"voltage": "x"}]}]})"), -1);
    EXPECT_EQ(rumo_sim_load_host("/nonexistent/host.json"), -1);
    EXPECT_EQ(rumo_sim_load_host(nullptr), -1);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("<text>: cards[0].chips[0].voltage: expected an integer\n"),
              std::string::npos)
        << err;
    EXPECT_NE(err.find("/nonexistent/host.json: cannot read: "), std::string::npos) << err;
    int32_t count = 0;
    ASSERT_EQ(rumo_get_device_count(&count), 0);
    EXPECT_EQ(count, 4);
}

TEST_F(RumoApi, LoadsHostFiles) {
    tavo::test::TempDir dir;
    std::string path =
        dir.write("host.json",
                  R"({"cards": [{"slot_id": 7, "chips": [{"logic_id": 12}, {"logic_id": 5}]}]})");
    ASSERT_EQ(rumo_sim_load_host(path.c_str()), 0);
    std::array<uint32_t, 2> ids{};
    ASSERT_EQ(rumo_list_device(ids.data(), 2), 0);
    EXPECT_EQ(ids, (std::array<uint32_t, 2>{12, 5})) << "description order";
    rumo_board_info info{};
    ASSERT_EQ(rumo_get_board_info(5, &info), 0);
    EXPECT_EQ(info.slot_id, 7u);
    EXPECT_EQ(rumo_get_board_info(0, &info), RUMO_SIM_ERR_NO_DEVICE);
}

TEST_F(RumoApi, ControlRefusalsReturnMinusOneWithAReason) {
    struct Refusal {
        int result;
        const char *line;
    };
    testing::internal::CaptureStderr();
    std::vector<Refusal> refusals = {
        {rumo_sim_set_value(0, "temperature", "\"hot\""),
         "rumo_sim_set_value: chip 0: temperature: expected an integer\n"},
        {rumo_sim_set_value(0, "temprature", "1"),
         "rumo_sim_set_value: chip 0: temprature: unknown key\n"},
        {rumo_sim_set_value(9, "temperature", "1"),
         "rumo_sim_set_value: no chip with logic id 9\n"},
        {rumo_sim_set_value(0, nullptr, "1"), "rumo_sim_set_value: the key is null\n"},
        {rumo_sim_set_value(0, "hbm", R"({"temp": 1, "freq": -1})"),
         "rumo_sim_set_value: chip 0: hbm.freq: out of range (0..4294967295)\n"},
        {rumo_sim_fail_next("rumo_get_nothing", 1, 3),
         "rumo_sim_fail_next: unknown function \"rumo_get_nothing\"\n"},
        {rumo_sim_fail_next("rumo_get_device_count", -1, 3),
         "rumo_sim_fail_next: times must not be negative\n"},
        {rumo_sim_fail_next("rumo_get_device_count", 1, 0),
         "rumo_sim_fail_next: a failure code must not be 0\n"},
    };
    std::string err = testing::internal::GetCapturedStderr();
    std::string expected;
    for (const Refusal &r : refusals) {
        EXPECT_EQ(r.result, -1) << r.line;
        expected += r.line;
    }
    EXPECT_EQ(err, expected);
    rumo_hbm_info hbm{};
    ASSERT_EQ(rumo_get_hbm_info(0, &hbm), 0);
    EXPECT_EQ(hbm.temp, 45) << "a refused value changes nothing";
    testing::internal::CaptureStderr();
    EXPECT_EQ(rumo_sim_call_count("rumo_get_nothing"), UINT32_MAX);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "rumo_sim_call_count: unknown function \"rumo_get_nothing\"\n");
}

TEST_F(RumoApi, FailNextWithZeroTimesCancels) {
    ASSERT_EQ(rumo_sim_fail_next("rumo_get_device_health", 3, 8), 0);
    ASSERT_EQ(rumo_sim_fail_next("rumo_get_device_health", 0, 0), 0);
    uint32_t health = 9;
    EXPECT_EQ(rumo_get_device_health(0, &health), 0);
    EXPECT_EQ(health, 0u);
}

TEST_F(RumoApi, SetValueChangesWhatTheChipReports) {
    ASSERT_EQ(rumo_sim_set_value(1, "temperature", "-5"), 0);
    ASSERT_EQ(rumo_sim_set_value(1, "hbm", R"({"temp": 97})"), 0);
    int32_t temperature = 0;
    rumo_hbm_info hbm{};
    ASSERT_EQ(rumo_get_device_temperature(1, &temperature), 0);
    ASSERT_EQ(rumo_get_hbm_info(1, &hbm), 0);
    EXPECT_EQ(temperature, -5);
    EXPECT_EQ(hbm.temp, 97);
    EXPECT_EQ(hbm.memory_size, 32768u) << "other members kept";
    ASSERT_EQ(rumo_sim_set_value(1, "frequency", R"({"4": 800})"), 0);
    uint32_t mhz = 0;
    EXPECT_EQ(rumo_get_device_frequency(1, 1, &mhz), RUMO_SIM_ERR_NOT_FOUND) << "maps are replaced";
    ASSERT_EQ(rumo_sim_set_value(1, "frequency", "null"), 0);
    EXPECT_EQ(rumo_get_device_frequency(1, 1, &mhz), 0) << "null restores the default";
}

TEST_F(RumoApi, ErrorCodesAreCappedAtTheCallersArray) {
    int32_t count = -1;
    std::array<uint32_t, RUMO_MAX_ERROR_CODES + 1> codes;
    codes.fill(0xDEADBEEF);
    ASSERT_EQ(rumo_get_device_errorcode(kErrorChip, &count, codes.data()), 0);
    ASSERT_EQ(count, 2);
    EXPECT_EQ(codes[0], kErrorCode);
    std::string all = "[";
    for (int i = 0; i < RUMO_MAX_ERROR_CODES; ++i) {
        all += (i == 0 ? "" : ",") + std::to_string(i + 1);
    }
    ASSERT_EQ(rumo_sim_set_value(0, "error_codes", (all + "]").c_str()), 0);
    ASSERT_EQ(rumo_get_device_errorcode(0, &count, codes.data()), 0);
    EXPECT_EQ(count, RUMO_MAX_ERROR_CODES);
    EXPECT_EQ(codes[RUMO_MAX_ERROR_CODES - 1], 128u);
    EXPECT_EQ(codes[RUMO_MAX_ERROR_CODES], 0xDEADBEEF);
}

// ---- Text into caller buffers: a canary follows the `size` bytes offered ----

struct TextCase {
    const char *name;
    int (*read)(unsigned char *buffer, uint32_t size);
    uint32_t size;
    int code;
    std::string text;  // what the buffer holds on success
};

int error_string(unsigned char *buffer, uint32_t size) {
    return rumo_query_errorstring(kErrorChip, kErrorCode, buffer, static_cast<int32_t>(size));
}

// The length output must match the text written.
int version(unsigned char *buffer, uint32_t size) {
    uint32_t length = 0;
    int code = rumo_get_version(0, reinterpret_cast<char *>(buffer), size, &length);
    return code == 0 && length != std::strlen(reinterpret_cast<char *>(buffer)) ? -100 : code;
}

int component(unsigned char *buffer, uint32_t size) {
    uint32_t length = 0;
    int code = rumo_upgrade_get_component_static_version(0, 8, buffer, size, &length);
    return code == 0 && length != std::strlen(reinterpret_cast<char *>(buffer)) ? -100 : code;
}

const std::string kErrorString = kErrorText;
const uint32_t kErrorLen = static_cast<uint32_t>(kErrorString.size());

void PrintTo(const TextCase &c, std::ostream *os) {
    *os << c.name;
}

class TextBuffer : public RumoApi, public testing::WithParamInterface<TextCase> {};

TEST_P(TextBuffer, StaysWithinSizeAndTerminates) {
    const TextCase &c = GetParam();
    std::vector<unsigned char> buffer(c.size + 1, kCanary);
    EXPECT_EQ(c.read(buffer.data(), c.size), c.code);
    EXPECT_EQ(buffer[c.size], kCanary) << "wrote past the buffer";
    if (c.code == 0) {
        std::string got(reinterpret_cast<char *>(buffer.data()));
        EXPECT_EQ(got, c.text);
    } else {
        EXPECT_EQ(buffer, std::vector<unsigned char>(c.size + 1, kCanary)) << "wrote on failure";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, TextBuffer,
    testing::Values(TextCase{"ErrorTextFits", error_string, kErrorLen + 1, 0, kErrorString},
                    TextCase{"ErrorTextTruncated", error_string, kErrorLen, 0,
                             kErrorString.substr(0, kErrorLen - 1)},
                    TextCase{"ErrorTextOneByte", error_string, 1, 0, ""},
                    TextCase{"ErrorTextNoRoom", error_string, 0, RUMO_SIM_ERR_SIZE, ""},
                    TextCase{"VersionFits", version, 7, 0, "23.0.1"},
                    TextCase{"VersionNoRoomForTerminator", version, 6, RUMO_SIM_ERR_SIZE, ""},
                    TextCase{"ComponentFits", component, 7, 0, "1.0.12"},
                    TextCase{"ComponentNoRoomForTerminator", component, 6, RUMO_SIM_ERR_SIZE, ""}),
    [](const testing::TestParamInfo<TextCase> &p) { return std::string(p.param.name); });

TEST_F(RumoApi, UnknownItemsAreNotFound) {
    uint32_t value = 0;
    rumo_sensor_info sensor{};
    rumo_ecc_info ecc{};
    rumo_flash_info flash{};
    std::array<unsigned char, 64> text{};
    uint32_t length = 0;
    EXPECT_EQ(rumo_get_device_frequency(0, 99, &value), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_get_device_utilization_rate(0, 99, &value), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_get_soc_sensor_info(0, 99, &sensor), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_get_ecc_info(0, 99, &ecc), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_get_device_flash_info(0, 1, &flash), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_query_errorstring(0, kErrorCode, text.data(), 64), RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_upgrade_get_component_static_version(0, 9, text.data(), 64, &length),
              RUMO_SIM_ERR_NOT_FOUND);
    EXPECT_EQ(rumo_get_user_config(0, "nope", 64, text.data()), RUMO_SIM_ERR_NOT_FOUND);
}

// ---- User configuration ----

struct ConfigCase {
    const char *name;
    uint32_t set_size;  // bytes written into "ntp_server" (64 at most)
    int set_code;
    uint32_t get_size;
    int get_code;
};

void PrintTo(const ConfigCase &c, std::ostream *os) {
    *os << c.name;
}

class UserConfig : public RumoApi, public testing::WithParamInterface<ConfigCase> {};

TEST_P(UserConfig, SizesAreChecked) {
    const ConfigCase &c = GetParam();
    std::vector<unsigned char> content(c.set_size, 'x');
    EXPECT_EQ(rumo_set_user_config(0, "ntp_server", c.set_size, content.data()), c.set_code);
    std::vector<unsigned char> buffer(c.get_size + 1, kCanary);
    EXPECT_EQ(rumo_get_user_config(0, "ntp_server", c.get_size, buffer.data()), c.get_code);
    EXPECT_EQ(buffer[c.get_size], kCanary);
    if (c.set_code == 0 && c.get_code == 0) {
        for (uint32_t i = 0; i < c.get_size; ++i) {
            EXPECT_EQ(buffer[i], i < c.set_size ? 'x' : 0) << "byte " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, UserConfig,
    testing::Values(ConfigCase{"FillsTheItem", 64, 0, 64, 0},
                    ConfigCase{"LargerThanTheItem", 65, RUMO_SIM_ERR_SIZE, 0, 0},
                    ConfigCase{"EmptyContent", 0, RUMO_SIM_ERR_INVALID_ARGUMENT, 0, 0},
                    ConfigCase{"BufferTooSmall", 10, 0, 9, RUMO_SIM_ERR_SIZE},
                    ConfigCase{"BufferLargerIsZeroFilled", 10, 0, 16, 0}),
    [](const testing::TestParamInfo<ConfigCase> &p) { return std::string(p.param.name); });

TEST_F(RumoApi, SshStateLivesInTheSshStatusItem) {
    uint32_t enabled = 9;
    ASSERT_EQ(rumo_get_ssh_enable(0, &enabled), 0);
    EXPECT_EQ(enabled, 0u);
    ASSERT_EQ(rumo_config_ssh_enable(0, 1), 0);
    unsigned char stored = 0;
    ASSERT_EQ(rumo_get_user_config(0, "ssh_status", 1, &stored), 0);
    EXPECT_EQ(stored, 1);
    const unsigned char two[] = {1, 1};
    EXPECT_EQ(rumo_set_user_config(0, "ssh_status", 2, two), RUMO_SIM_ERR_SIZE);
    ASSERT_EQ(rumo_clear_user_config(0, "ssh_status"), 0);
    ASSERT_EQ(rumo_get_ssh_enable(0, &enabled), 0);
    EXPECT_EQ(enabled, 0u);
    ASSERT_EQ(rumo_get_ssh_enable(1, &enabled), 0);
    EXPECT_EQ(enabled, 0u) << "another chip's state is its own";
}

// ---- Heartbeat ----

TEST_F(RumoApi, HeartbeatCounterGrowsOnlyWhileAlive) {
    struct Expect {
        const char *heartbeat;
        uint8_t status;
        std::array<uint32_t, 3> counters;
    };
    for (const Expect &e :
         {Expect{R"({"status": 0, "counter": 4})", 0, {4, 4, 4}},
          Expect{R"({"status": 1, "counter": 10})", 1, {10, 11, 12}},
          Expect{R"({"status": 1, "counter": 4294967295})", 1, {4294967295u, 0, 1}}}) {
        ASSERT_EQ(rumo_sim_set_value(1, "heartbeat", e.heartbeat), 0);
        for (uint32_t expected : e.counters) {
            uint8_t status = 0xFF;
            uint32_t counter = 0;
            ASSERT_EQ(rumo_get_mini2mcu_heartbeat_status(1, &status, &counter), 0);
            EXPECT_EQ(status, e.status) << e.heartbeat;
            EXPECT_EQ(counter, expected) << e.heartbeat;
        }
    }
}

TEST_F(RumoApi, ConcurrentCallsAreSerialised) {
    ASSERT_EQ(rumo_sim_set_value(1, "heartbeat", R"({"status": 1, "counter": 0})"), 0);
    constexpr int kThreads = 4;
    constexpr int kCallsEach = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < kCallsEach; ++i) {
                uint8_t status = 0;
                uint32_t counter = 0;
                (void)rumo_get_mini2mcu_heartbeat_status(1, &status, &counter);
            }
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    uint8_t status = 0;
    uint32_t counter = 0;
    ASSERT_EQ(rumo_get_mini2mcu_heartbeat_status(1, &status, &counter), 0);
    EXPECT_EQ(counter, static_cast<uint32_t>(kThreads * kCallsEach));
    EXPECT_EQ(rumo_sim_call_count("rumo_get_mini2mcu_heartbeat_status"),
              static_cast<uint32_t>(kThreads * kCallsEach + 1));
}

}  // namespace
