#include "mcu_fixture.h"

#include <fstream>

namespace tavo::test {

std::string mcu_host(const std::string &mcu, bool second_chip) {
    std::string chips =
        second_chip ? R"([{"logic_id": 1}, {"logic_id": 2}])" : R"([{"logic_id": 1}])";
    return R"({"name": "mcu", "cards": [
        {"slot_id": 1, "chips": [{"logic_id": 0}]},
        {"slot_id": 2, "board_id": 1, "pcb_id": 2, "bom_id": 5, "chips": )" +
           chips + R"(, "mcu": )" + mcu + "}]}";
}

void PrintTo(const Request &r, std::ostream *os) {
    *os << "{cmd " << r.command << " off " << r.offset << " len " << r.length << " ctl "
        << int{r.control} << " arg " << int{r.argument} << " data";
    for (uint8_t b : r.data) {
        *os << ' ' << int{b};
    }
    *os << '}';
}

std::vector<rumo_sim_mcu_frame> mcu_frames(uint32_t card) {
    std::vector<rumo_sim_mcu_frame> frames;
    int32_t count = rumo_sim_mcu_frame_count(card);
    for (int32_t i = 0; i < count; ++i) {
        rumo_sim_mcu_frame frame{};
        EXPECT_EQ(rumo_sim_mcu_get_frame(card, static_cast<uint32_t>(i), &frame), 0);
        frames.push_back(frame);
    }
    return frames;
}

std::vector<Request> mcu_requests(uint32_t card) {
    std::vector<Request> requests;
    for (const rumo_sim_mcu_frame &f : mcu_frames(card)) {
        requests.push_back({f.command, f.offset, f.length, f.control, f.argument,
                            std::vector<uint8_t>(f.data, f.data + f.data_length)});
    }
    return requests;
}

std::vector<uint32_t> offsets_of(const std::vector<Request> &requests, uint16_t command) {
    std::vector<uint32_t> offsets;
    for (const Request &r : requests) {
        if (r.command == command) {
            offsets.push_back(r.offset);
        }
    }
    return offsets;
}

std::vector<uint8_t> counting_bytes(std::size_t count, uint8_t first) {
    std::vector<uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

void set_item(uint16_t command, const std::vector<uint8_t> &bytes, uint8_t argument) {
    ASSERT_EQ(rumo_sim_mcu_set_item(kMcuCard, command, argument, bytes.data(),
                                    static_cast<uint32_t>(bytes.size())),
              0);
}

void write_board_description(std::string_view text) {
    std::ofstream(tavo::api::kBoardConfigPath, std::ios::binary | std::ios::trunc) << text;
}

void McuTest::start(const std::string &host, std::string_view board_description) {
    g_tavoBoardInfo = tavo_card_table{};
    ASSERT_EQ(rumo_sim_load_host_text(host.c_str()), 0) << host;
    write_board_description(board_description);
    ASSERT_EQ(tavo_init(), 0);
    remove_logs();
    clear_requested_sleeps();
    ASSERT_EQ(rumo_sim_mcu_clear_frames(kMcuCard), 0);
}

std::size_t McuTest::count_logged(std::string_view text) {
    std::size_t n = 0;
    for (const LogRecord &record : read_log(kErrLog)) {
        n += message_text(record) == text ? 1 : 0;
    }
    return n;
}

void TwoChipMcuTest::SetUp() {
    start(mcu_host(R"({"chip_slots": [1, 3], "link_test_report": "MINI1"})", true),
          "mcu_card=2:1\n");
    tavo_card_record *card = nullptr;
    ASSERT_EQ(tavo_get_card_info(kMcuCard, &card), 0);
    card->device_count = 2;
    card->devices[1] = card->devices[0];
    card->devices[1].logic_id = kSecondChip;
    card->devices[1].chip_slot = 3;
    card->mcu_device_id = 2;
}

}  // namespace tavo::test
