// Several processes on one EEPROM: what one writes another reads, and writers that
// meet at the lock never leave a corrupt label.
#include <fcntl.h>

#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "base/unique_fd.h"
#include "child_process.h"
#include "elabel_fixture.h"
#include "i2c_world.h"

namespace tavo::test {
namespace {

constexpr std::size_t kLabelStart = 128;

std::string hex(std::string_view bytes) {
    std::string out;
    char pair[3];
    for (unsigned char c : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", c);
        out += pair;
    }
    return out;
}

// EEPROM addresses of the page writes on bus 8, in the order they reached it.
std::vector<std::size_t> page_write_addresses(const emu::i2c::I2cBus &bus) {
    std::vector<std::size_t> addresses;
    for (const auto &transfer : bus.transcript()) {
        for (const auto &message : transfer.messages) {
            if ((message.flags & I2C_M_RD) == 0 && message.data.size() > 2) {
                addresses.push_back(std::size_t{message.data[0]} << 8 | message.data[1]);
            }
        }
    }
    return addresses;
}

// Every erase and every image write covers the label page by page, in order; two
// writers that both held the bus at once would interleave their pages.
::testing::AssertionResult writes_are_whole_passes(const std::vector<std::size_t> &addresses) {
    constexpr std::size_t kPage = 16;
    constexpr std::size_t kPagesPerPass = (elabel::kImageSize + kPage - 1) / kPage;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        const std::size_t expected = kLabelStart + (i % kPagesPerPass) * kPage;
        if (addresses[i] != expected) {
            return ::testing::AssertionFailure()
                   << "page write " << i << " at " << addresses[i] << ", expected " << expected;
        }
    }
    if (addresses.size() % kPagesPerPass != 0) {
        return ::testing::AssertionFailure() << "a pass was cut short";
    }
    return ::testing::AssertionSuccess();
}

class ElabelProcessesTest : public ElabelTest {
  protected:
    void SetUp() override {
        ElabelTest::SetUp();
        eeprom_.erase();
    }
    const uint8_t *stored() { return eeprom_.contents().data() + kLabelStart; }

    I2cWorld world_;
    emu::i2c::Eeprom24c512 &eeprom_ = world_.add_eeprom(8, 0x50);
};

TEST_F(ElabelProcessesTest, AnotherProcessReadsWhatThisOneWrote) {
    const std::map<uint8_t, std::string> items{{0x11, "serial-42"}, {0x50, std::string(255, 'L')}};
    for (const auto &[id, text] : items) {
        ASSERT_EQ(DriverElabelSetData(id, reinterpret_cast<const uint8_t *>(text.data()), 0,
                                      static_cast<uint8_t>(text.size())),
                  0);
    }
    for (const auto &[id, text] : items) {
        ChildProcess reader({ELABEL_CHILD, "get", std::to_string(id)});
        EXPECT_EQ(reader.read_line(), "0 " + std::to_string(text.size()) + " " + hex(text));
        EXPECT_EQ(reader.wait(), 0);
    }
}

struct WriterResult {
    int status = 99;
    long lock_pauses = 0;
};

WriterResult parse_result(const std::string &line) {
    WriterResult result;
    std::istringstream(line) >> result.status >> result.lock_pauses;
    return result;
}

// Each round starts four writers of different items at the same moment. A writer may
// lose its update to another's whole-image write, or give up on the lock, but only one
// of them writes at a time and the label always holds whole items with good CRCs.
TEST_F(ElabelProcessesTest, ConcurrentWritersNeverCorruptTheLabel) {
    ASSERT_EQ(DriverElabelInit(), 0);
    constexpr std::array<uint8_t, 4> kIds{0x20, 0x21, 0x22, 0x23};
    std::map<uint8_t, std::set<std::string>> allowed;
    for (uint8_t id : kIds) {
        allowed[id].insert("");
    }
    long lock_pauses = 0;
    for (int round = 0; round < 4; ++round) {
        const std::string go = "/tmp/elabel-go-" + std::to_string(round);
        std::vector<ChildProcess> writers;
        for (uint8_t id : kIds) {
            const std::string text = "round " + std::to_string(round) + " item " +
                                     std::to_string(id) + std::string(40, '.');
            allowed[id].insert(text);
            writers.emplace_back(
                std::vector<std::string>{ELABEL_CHILD, "set", std::to_string(id), text, go});
        }
        for (ChildProcess &writer : writers) {
            ASSERT_EQ(writer.read_line(), "ready");
        }
        ASSERT_TRUE(
            base::UniqueFd(::open(go.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600)).valid());
        int succeeded = 0;
        for (ChildProcess &writer : writers) {
            WriterResult result = parse_result(writer.read_line());
            EXPECT_TRUE(result.status == 0 || result.status == -1) << result.status;
            succeeded += result.status == 0 ? 1 : 0;
            lock_pauses += result.lock_pauses;
            EXPECT_EQ(writer.wait(), 0);
        }
        EXPECT_GE(succeeded, 1) << "round " << round;
        ASSERT_TRUE(label_is_consistent(stored())) << "round " << round;
        for (uint8_t id : kIds) {
            Slot slot = slot_of(stored(), item_by_id(id));
            EXPECT_EQ(allowed[id].count(slot.data.substr(0, slot.length)), 1u)
                << "round " << round << " item " << int{id};
        }
    }
    EXPECT_TRUE(writes_are_whole_passes(page_write_addresses(world_.bus(8))));
    EXPECT_GT(lock_pauses, 0) << "the writers never met at the lock";
}

}  // namespace
}  // namespace tavo::test
