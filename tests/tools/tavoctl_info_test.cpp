// tavoctl list, info and query on the built-in hosts, as an operator sees them.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

#include "run_command.h"

namespace {

using tavo::test::CommandResult;

CommandResult tavoctl(const std::string &host, const std::vector<std::string> &args) {
    std::vector<std::string> argv{TAVO_SIM_PATH, "run", "--host", host, "--", TAVOCTL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    return tavo::test::run_command(argv, TAVOCTL_TEST_SCRATCH);
}

nlohmann::json readings_of(const nlohmann::json &info, unsigned card, unsigned device) {
    for (const auto &c : info["cards"]) {
        if (c["card_id"] == card) {
            for (const auto &d : c["devices"]) {
                if (d["device_id"] == device) {
                    return d["readings"];
                }
            }
        }
    }
    return nullptr;
}

TEST(TavoctlInfo, DefaultHostShowsChipsAndTheMcu) {
    CommandResult r = tavoctl("default", {"--json", "info"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json info = nlohmann::json::parse(r.out);
    ASSERT_EQ(info["cards"].size(), 4u);
    nlohmann::json chip = readings_of(info, 1, 0);
    EXPECT_EQ(chip["temperature"], 44);
    EXPECT_EQ(chip["chip"]["name"], "TV310");
    nlohmann::json mcu = readings_of(info, 2, 1);
    ASSERT_FALSE(mcu.is_null()) << r.out;
    EXPECT_EQ(mcu["chip"]["name"], "MCU");
    EXPECT_EQ(mcu["firmware-version"], "1.20.3");
    EXPECT_EQ(mcu["hbm"], "not supported");
    EXPECT_EQ(mcu["ecc 0"], "not supported");
    nlohmann::json errors = readings_of(info, 3, 0)["error-codes"];
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_FALSE(errors[0]["text"].get<std::string>().empty());
}

TEST(TavoctlInfo, CameraHostShowsTheMediaSoc) {
    CommandResult r = tavoctl("camera", {"--json", "info"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json soc = readings_of(nlohmann::json::parse(r.out), 0, 2);
    ASSERT_FALSE(soc.is_null()) << r.out;
    EXPECT_EQ(soc["chip"]["name"], "kite");
    EXPECT_EQ(soc["memory"]["size_mib"], 4096);
    EXPECT_EQ(soc["die"][0], 0x44332211);
    EXPECT_EQ(soc["board"]["board_id"], 0x2a);
    EXPECT_EQ(soc["temperature"], "not supported");
    ASSERT_EQ(soc["error-codes"].size(), 2u);
    EXPECT_EQ(soc["error-codes"][0]["code"], 1031);
}

TEST(TavoctlQuery, OneReadingAndItsFailures) {
    CommandResult r = tavoctl("default", {"query", "1", "0", "frequency", "1"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "3200\n");

    r = tavoctl("default", {"query", "2", "1", "hbm"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "not supported\n");

    r = tavoctl("default", {"query", "1", "0", "frequency"});
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.err, "tavoctl: query 'frequency' needs KIND\n");

    r = tavoctl("default", {"query", "9", "0", "health"});
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.err.find("failed"), std::string::npos) << r.err;
}

TEST(TavoctlList, CameraBoardIsReportedAsSuch) {
    CommandResult r = tavoctl("camera", {"board-type"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "fennec\n");
    r = tavoctl("camera", {"--json", "list"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json list = nlohmann::json::parse(r.out);
    EXPECT_EQ(list["cards"][0]["devices"][0]["type"], "embedded");
}

}  // namespace
