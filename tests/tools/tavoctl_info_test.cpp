// tavoctl list, info and query on the built-in hosts, as an operator sees them.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>
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

// A chip may report 128 codes of 4 bytes; all of them reach the operator.
TEST(TavoctlQuery, ChipWithTheMostErrorCodesShowsThemAll) {
    nlohmann::json codes = nlohmann::json::array();
    for (unsigned i = 1; i <= 128; ++i) {
        codes.push_back(0x81000000u + i);
    }
    nlohmann::json host = {{"cards", {{{"chips", {{{"error_codes", codes}}}}}}}};
    const std::string path = std::string(TAVOCTL_TEST_SCRATCH) + "/many_codes.json";
    std::ofstream(path) << host.dump();

    CommandResult r = tavoctl(path, {"--json", "query", "0", "0", "error-codes"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json shown = nlohmann::json::parse(r.out)["value"];
    ASSERT_EQ(shown.size(), 128u) << r.out;
    EXPECT_EQ(shown[127]["code"], 0x81000080u);

    r = tavoctl(path, {"--json", "info"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json readings = readings_of(nlohmann::json::parse(r.out), 0, 0);
    ASSERT_EQ(readings["error-codes"].size(), 128u) << r.out;
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

namespace {

TEST(TavoctlSlots, DefaultHostCardsSitInTheirPhysicalSlots) {
    CommandResult r = tavoctl("default", {"--json", "slots"});
    ASSERT_EQ(r.status, 0) << r.err;
    nlohmann::json cards = nlohmann::json::parse(r.out)["cards"];
    ASSERT_EQ(cards.size(), 4u);
    EXPECT_EQ(cards[0]["pcie_bus"], "0000:3b:00.0");
    EXPECT_EQ(cards[0]["pcie_slot"], 3);
    EXPECT_EQ(cards[3]["pcie_slot"], 7);
    EXPECT_EQ(cards[3]["fault_devices"], 1);  // two functions below it, one chip reported
}

TEST(TavoctlReset, ChipIsResetThroughTheBmcAndTheChangeIsAudited) {
    // Card 3 sits in slot 6, where the BMC reports the chip still in reset once.
    CommandResult r = tavo::test::run_command(
        {TAVO_SIM_PATH, "run", "--", "sh", "-c",
         std::string(TAVOCTL_PATH) +
             " reset 3 0 && cat /run/tavo-sim/ipmi/requests.jsonl /var/log/quillmon_LOG_OP.log"},
        TAVOCTL_TEST_SCRATCH);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("reset card 3 device 0: done\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"("data":"db07005300000000060101")"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"("data":"db07005400000000060101")"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("[tavoctl,reset,0]:reset card 3 device 0: done"), std::string::npos);
    std::size_t resets = 0;
    for (std::size_t at = r.out.find("0053000000000601"); at != std::string::npos;
         at = r.out.find("0053000000000601", at + 1)) {
        ++resets;
    }
    EXPECT_EQ(resets, 2u);
}

}  // namespace
