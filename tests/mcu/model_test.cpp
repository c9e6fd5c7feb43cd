// The MCU model and its description: what a host may declare, which chip reaches
// the MCU, and the firmware's answers to requests the library never makes.
#include <array>
#include <cstring>

#include "host_parse.h"
#include "mcu_fixture.h"
#include "mcu_model.h"
#include "rumo_sim_codes.h"

namespace tavo::test {
namespace {

namespace model = mcu_model;

std::string refusal(const std::string &mcu, const std::string &chips = "[{}]") {
    try {
        sim::load_host_text(R"({"cards": [{"slot_id": 4, "chips": )" + chips + R"(, "mcu": )" +
                            mcu + "}]}");
    } catch (const sim::HostError &e) {
        return e.what();
    }
    return "(accepted)";
}

struct Refusal {
    const char *name;
    const char *mcu;
    const char *chips;
    const char *problem;
};

class McuDescriptionTest : public ::testing::TestWithParam<Refusal> {};

TEST_P(McuDescriptionTest, IsRefusedWithThePathOfTheBadValue) {
    const Refusal &r = GetParam();
    EXPECT_EQ(refusal(r.mcu, r.chips), std::string("<text>: cards[0].mcu") + r.problem);
}

INSTANTIATE_TEST_SUITE_P(
    Values, McuDescriptionTest,
    ::testing::Values(
        Refusal{"SlotTwo", R"({"chip_slots": [2]})", "[{}]",
                ".chip_slots[0]: expected 0 (not wired), 1 or 3"},
        Refusal{"SlotTaken", R"({"chip_slots": [3, 3]})", "[{}, {}]",
                ".chip_slots[1]: chip slot 3 is taken"},
        Refusal{"MoreSlotsThanChips", R"({"chip_slots": [1, 3]})", "[{}]",
                ".chip_slots: more entries than the card has chips (1)"},
        Refusal{"NothingWired", R"({"chip_slots": [0]})", "[{}]",
                ".chip_slots: at least one chip must be wired (slot 1 or 3)"},
        Refusal{"ActiveSlotNotWired", R"({"active_slot": 3})", "[{}]",
                ".active_slot: no chip is wired to slot 3"},
        Refusal{"NoVersion", R"({"version": []})", "[{}]",
                ".version: expected an array of 1 to 20 integers"},
        Refusal{"TemperatureTooLarge", R"({"temperature": 65536})", "[{}]",
                ".temperature: out of range (0..65535)"},
        Refusal{"UnknownLog", R"({"logs": {"debug_log": {"text": "x"}}})", "[{}]",
                ".logs[\"debug_log\"]: expected error_log, operate_log or maintaince_log"},
        Refusal{"LogSizeWithoutText", R"({"logs": {"error_log": {"size": 10}}})", "[{}]",
                ".logs[\"error_log\"]: a log with a size needs a text to repeat"},
        Refusal{"LabelIdTooLarge", R"({"labels": {"256": "x"}})", "[{}]",
                ".labels[\"256\"]: key out of range (0..255)"},
        Refusal{"OddHex", R"({"items": {"7": "abc"}})", "[{}]",
                ".items[\"7\"]: expected an even number of hexadecimal digits"},
        Refusal{"UnknownKey", R"({"colour": 1})", "[{}]", ".colour: unknown key"}),
    [](const auto &param_info) { return std::string(param_info.param.name); });

TEST(McuDescription, DefaultsFollowTheCard) {
    sim::Host host = sim::load_host_text(
        R"({"cards": [{"slot_id": 4, "board_id": 300, "pcb_id": 6, "bom_id": 8,
                       "chips": [{}, {}], "mcu": {"logs": {"error_log": {"text": "ab", "size": 5}}}}]})");
    const model::McuConfig &mcu = host.cards[0].mcu.value();
    EXPECT_EQ(mcu.chip_slots, (std::vector<uint32_t>{1, 3}));
    EXPECT_EQ(mcu.active_slot, 1u);
    auto item = [&mcu](uint16_t command) { return mcu.items.at({command, 0}); };
    EXPECT_EQ(item(model::command::kBoardId), (std::vector<uint8_t>{0x2C, 0x01}));
    EXPECT_EQ(item(model::command::kPcbId), (std::vector<uint8_t>{6}));
    EXPECT_EQ(item(model::command::kBomId), (std::vector<uint8_t>{8}));
    EXPECT_EQ(item(model::command::kErrorCode), (std::vector<uint8_t>{0, 0}));
    EXPECT_EQ(item(model::command::kErrorLog), (std::vector<uint8_t>{'a', 'b', 'a', 'b', 'a'}));
    EXPECT_TRUE(item(model::command::kOperateLog).empty());
}

// Card 2 of the two-chip host: chip 1 in slot 1 holds the link, chip 2 in slot 3.
class RelayTest : public McuTest {
  protected:
    void SetUp() override { start(mcu_host(R"({"chip_slots": [1, 3]})", true), "mcu_card=2:1\n"); }
    static int passthru(uint32_t logic_id, tavo_mcu_passthru_record &record) {
        return rumo_passthru_mcu(logic_id, &record);
    }
};

TEST_F(RelayTest, OnlyTheChipHoldingTheLinkReachesTheMcu) {
    tavo_mcu_passthru_record record{};
    ASSERT_EQ(tavo_mcu_fill_data_for_reading(&record, 0, TAVO_MCU_CMD_HEALTH, 0, 1, nullptr, 0), 0);
    EXPECT_EQ(passthru(kRelayChip, record), RUMO_SIM_OK);
    EXPECT_EQ(passthru(kSecondChip, record), RUMO_SIM_ERR_LINK_DOWN);
    EXPECT_EQ(passthru(0, record), RUMO_SIM_ERR_NO_MCU) << "card 1 has no MCU";
    record.request_size = 11;
    EXPECT_EQ(passthru(kRelayChip, record), RUMO_SIM_ERR_INVALID_ARGUMENT);
    record.request_size = 1025;
    EXPECT_EQ(passthru(kRelayChip, record), RUMO_SIM_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(rumo_sim_mcu_frame_count(kMcuCard), 1);
    EXPECT_EQ(rumo_sim_mcu_frame_count(1), -1);

    std::array<uint8_t, 2> statuses{};
    uint32_t counter = 0;
    ASSERT_EQ(rumo_get_mini2mcu_heartbeat_status(kRelayChip, &statuses[0], &counter), 0);
    ASSERT_EQ(rumo_get_mini2mcu_heartbeat_status(kSecondChip, &statuses[1], &counter), 0);
    EXPECT_EQ(statuses, (std::array<uint8_t, 2>{1, 0}));
}

// Requests straight to the model, as a faulty or foreign caller might send them.
class FirmwareTest : public ::testing::Test {
  protected:
    FirmwareTest() : mcu_(config()) {}

    static model::McuConfig config() {
        model::McuConfig c;
        c.chip_slots = {1};
        c.items[{model::command::kHealth, 0}] = {0};
        return c;
    }

    uint16_t status(uint16_t command, model::Direction direction, std::vector<uint8_t> data = {},
                    uint8_t control = model::kControlLast) {
        std::vector<uint8_t> request(model::kHeaderSize);
        request[0] = control;
        request[2] = static_cast<uint8_t>(command);
        request[3] = static_cast<uint8_t>(command >> 8);
        request[8] = static_cast<uint8_t>(direction == model::Direction::write ? data.size() : 20);
        request.insert(request.end(), data.begin(), data.end());
        auto response = mcu_.handle(request, direction, model::Transport::passthru);
        return response ? static_cast<uint16_t>((*response)[0] | (*response)[1] << 8) : 0xFFFF;
    }

    model::McuModel mcu_;
};

TEST_F(FirmwareTest, AnswersWhatTheLibraryNeverAsks) {
    using model::Direction;
    namespace st = model::status;
    EXPECT_EQ(status(999, Direction::read), st::kUnknownCommand);
    EXPECT_EQ(status(999, Direction::write, {1}), st::kUnknownCommand);
    EXPECT_EQ(status(model::command::kUpgradeData, Direction::read), st::kWrongDirection);
    EXPECT_EQ(status(model::command::kPeripheralResult, Direction::read), st::kNotReady)
        << "no result before the test ran";
    EXPECT_EQ(status(model::command::kUpgradeControl, Direction::write, {1}), st::kNotReady)
        << "no image to apply";
    EXPECT_EQ(status(model::command::kPeripheralTest, Direction::write, {1, 3}), st::kBadRequest);
    EXPECT_EQ(status(model::command::kSwitchChannel, Direction::write, {1, 1}), st::kBadRequest);

    EXPECT_EQ(status(model::command::kUpgradeData, Direction::write, {1, 2}, 0), st::kOk);
    EXPECT_EQ(mcu_.upgrade_state(), model::upgrade::kReceiving);
    EXPECT_EQ(status(model::command::kUpgradeControl, Direction::write, {2}), st::kOk);
    EXPECT_EQ(mcu_.upgrade_state(), model::upgrade::kIdle);
    EXPECT_TRUE(mcu_.image().empty()) << "cancel drops the image";
    EXPECT_EQ(status(model::command::kUpgradeControl, Direction::write, {9}), st::kBadRequest);
    EXPECT_EQ(mcu_.transcript().size(), 10u);
    EXPECT_FALSE(mcu_.handle(std::vector<uint8_t>(11), Direction::read, model::Transport::smbus))
        << "shorter than a header: no answer";
}

}  // namespace
}  // namespace tavo::test
