#include "api_fixture.h"

namespace tavo::test {

std::string host_with_cards(int chips, int board_id) {
    std::string cards;
    for (int i = 0; i < chips; ++i) {
        if (i != 0) {
            cards += ",";
        }
        cards += R"({"slot_id": )" + std::to_string(i + 1) + R"(, "board_id": )" +
                 std::to_string(board_id) + R"(, "pcb_id": 2, "bom_id": 3, "chips": [{}]})";
    }
    return R"({"name": "test", "cards": [)" + cards + "]}";
}

}  // namespace tavo::test
