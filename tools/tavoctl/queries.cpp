#include "queries.h"

#include <array>
#include <cstring>

#include "tavo/tavo_query.h"

namespace tavoctl {
namespace {

using nlohmann::json;

// A reading that is one number.
template <typename T, int (*Api)(uint32_t, uint32_t, T *)>
Reading word_query(uint32_t card, uint32_t device, uint32_t) {
    T value = 0;
    int status = Api(card, device, &value);
    return {status, status == 0 ? json(value) : json()};
}

// A reading that is one number of the kind the argument names.
template <int (*Api)(uint32_t, uint32_t, uint32_t, uint32_t *)>
Reading kinded_word_query(uint32_t card, uint32_t device, uint32_t kind) {
    uint32_t value = 0;
    int status = Api(card, device, kind, &value);
    return {status, status == 0 ? json(value) : json()};
}

std::string text_of(const unsigned char *text, std::size_t size) {
    return std::string(reinterpret_cast<const char *>(text),
                       strnlen(reinterpret_cast<const char *>(text), size));
}

std::string text_of(const char *text, std::size_t size) {
    return std::string(text, strnlen(text, size));
}

json die_words(const rumo_die_id &die) {
    return json(die.soc_die);
}

Reading die(uint32_t card, uint32_t device, uint32_t) {
    rumo_die_id value{};
    int status = tavo_get_device_die_api(card, device, &value);
    return {status, status == 0 ? die_words(value) : json()};
}

Reading ndie(uint32_t card, uint32_t device, uint32_t) {
    rumo_die_id value{};
    int status = tavo_get_device_ndie_api(card, device, &value);
    return {status, status == 0 ? die_words(value) : json()};
}

Reading aicore(uint32_t card, uint32_t device, uint32_t) {
    rumo_aicore_info v{};
    int status = tavo_get_aicore_info_api(card, device, &v);
    return {status, {{"freq_mhz", v.freq}, {"cur_freq_mhz", v.cur_freq}}};
}

Reading soc_sensor(uint32_t card, uint32_t device, uint32_t sensor) {
    rumo_sensor_info v{};
    int status = tavo_get_soc_sensor_api(card, device, sensor, &v);
    return {status, json(v.data)};
}

Reading ecc(uint32_t card, uint32_t device, uint32_t kind) {
    rumo_ecc_info v{};
    int status = tavo_get_ecc_info_api(card, device, kind, &v);
    return {status,
            {{"enabled", v.enable_flag != 0},
             {"single_bit_errors", v.single_bit_error_count},
             {"double_bit_errors", v.double_bit_error_count},
             {"total_single_bit_errors", v.total_single_bit_error_count},
             {"total_double_bit_errors", v.total_double_bit_error_count}}};
}

Reading flash_info(uint32_t card, uint32_t device, uint32_t index) {
    rumo_flash_info v{};
    int status = tavo_get_device_flash_info_api(card, device, index, &v);
    return {status,
            {{"flash_id", v.flash_id},
             {"vendor", v.vendor},
             {"state", v.state},
             {"size", v.size},
             {"sector_count", v.sector_count}}};
}

Reading memory(uint32_t card, uint32_t device, uint32_t) {
    rumo_memory_info v{};
    int status = tavo_get_memory_info_api(card, device, &v);
    return {status,
            {{"size_mib", v.memory_size}, {"freq_mhz", v.freq}, {"utilization", v.utilization}}};
}

Reading hbm(uint32_t card, uint32_t device, uint32_t) {
    rumo_hbm_info v{};
    int status = tavo_get_hbm_info_api(card, device, &v);
    return {status,
            {{"size_mib", v.memory_size},
             {"usage_mib", v.memory_usage},
             {"freq_mhz", v.freq},
             {"temperature", v.temp},
             {"bandwidth_utilization", v.bandwidth_util_rate}}};
}

Reading chip(uint32_t card, uint32_t device, uint32_t) {
    rumo_chip_info v{};
    int status = tavo_get_chip_info_api(card, device, &v);
    return {status,
            {{"type", text_of(v.chip_type, sizeof v.chip_type)},
             {"name", text_of(v.chip_name, sizeof v.chip_name)},
             {"version", text_of(v.chip_ver, sizeof v.chip_ver)}}};
}

Reading board(uint32_t card, uint32_t device, uint32_t) {
    rumo_board_info v{};
    int status = tavo_get_board_info_api(card, device, &v);
    return {status,
            {{"board_id", v.board_id},
             {"pcb_id", v.pcb_id},
             {"bom_id", v.bom_id},
             {"slot_id", v.slot_id}}};
}

Reading pcie(uint32_t card, uint32_t device, uint32_t) {
    rumo_pcie_info v{};
    int status = tavo_get_pcie_info_api(card, device, &v);
    return {status,
            {{"vendor_id", v.vendor_id},
             {"device_id", v.device_id},
             {"bus", v.bdf_bus},
             {"device", v.bdf_device},
             {"function", v.bdf_function}}};
}

Reading firmware_version(uint32_t card, uint32_t device, uint32_t) {
    std::array<unsigned char, 256> text{};
    uint32_t length = 0;
    int status = tavo_get_firmware_version_api(card, device, text.data(), text.size(), &length);
    return {status, text_of(text.data(), text.size())};
}

Reading error_codes(uint32_t card, uint32_t device, uint32_t) {
    std::array<unsigned char, TAVO_ERROR_CODE_BUFFER_SIZE> raw{};
    uint32_t count = 0;
    uint32_t width = 0;
    int status = tavo_get_device_errorcode_api(card, device, &count, raw.data(), &width);
    if (status != 0) {
        return {status, json()};
    }
    json list = json::array();
    for (uint32_t i = 0; i < count && width != 0 && (i + 1) * width <= raw.size(); ++i) {
        uint32_t code = 0;
        for (uint32_t b = 0; b < width && b < sizeof code; ++b) {
            code |= uint32_t{raw[i * width + b]} << (8 * b);
        }
        std::array<unsigned char, 256> text{};
        json entry = {{"code", code}};
        if (tavo_get_device_errorinfo_api(card, device, code, text.data(), text.size()) == 0) {
            entry["text"] = text_of(text.data(), text.size());
        }
        list.push_back(entry);
    }
    return {0, list};
}

Reading error_info(uint32_t card, uint32_t device, uint32_t code) {
    std::array<unsigned char, 256> text{};
    int status = tavo_get_device_errorinfo_api(card, device, code, text.data(), text.size());
    return {status, text_of(text.data(), text.size())};
}

constexpr std::array kQueries{
    Query{"health", "", "0 good, 1 minor, 2 major, 3 critical, 4 unknown",
          word_query<uint32_t, tavo_get_health_api>},
    Query{"temperature", "", "degC", word_query<int32_t, tavo_get_temperature_api>},
    Query{"power", "", "0.1 W", word_query<uint32_t, tavo_get_power_info_api>},
    Query{"voltage", "", "0.01 V", word_query<uint32_t, tavo_get_voltage_api>},
    Query{"frequency", "KIND", "MHz; 1 DDR, 2 control CPU, 3 HBM, 4 AI core, 5 AI core rated",
          kinded_word_query<tavo_get_device_frequency_api>},
    Query{"utilization", "KIND",
          "percent; 1 DDR, 2 AI core, 3 AI CPU, 4 control CPU, 5 DDR bandwidth, 6 HBM bandwidth",
          kinded_word_query<tavo_get_device_utilization_rate_api>},
    Query{"aicore", "", "AI-core frequencies", aicore, kChipOnly},
    Query{"memory", "", "device memory", memory},
    Query{"hbm", "", "high-bandwidth memory", hbm, kChipOnly},
    Query{"ecc", "KIND", "0 DDR, 1 HBM", ecc},
    Query{"chip", "", "chip identity", chip},
    Query{"board", "", "board identity", board},
    Query{"board-id", "", "board id", word_query<uint32_t, tavo_get_board_id_api>},
    Query{"pcb-id", "", "PCB id", word_query<uint32_t, tavo_get_pcb_id_api>},
    Query{"pcie", "", "PCIe identity and address", pcie, kChipOnly},
    Query{"die", "", "die id", die},
    Query{"ndie", "", "second die id", ndie, kChipOnly},
    Query{"soc-sensor", "ID", "raw sensor words", soc_sensor, kChipOnly},
    Query{"system-time", "", "seconds since 1970", word_query<uint32_t, tavo_get_system_time_api>,
          kChipOnly},
    Query{"flash-count", "", "number of flash parts",
          word_query<uint32_t, tavo_get_device_flash_count_api>},
    Query{"flash-info", "INDEX", "one flash part", flash_info},
    Query{"firmware-version", "", "firmware version text", firmware_version},
    Query{"error-codes", "", "active error codes with their texts", error_codes},
    Query{"error-info", "CODE", "text of one error code", error_info},
};

}  // namespace

std::span<const Query> queries() {
    return kQueries;
}

Reading run_query_on(const Query &query, int32_t type, uint32_t card, uint32_t device,
                     uint32_t argument) {
    if (type < 0 || type > 2 || (query.types & (1u << type)) == 0) {
        return {TAVO_NOT_SUPPORTED, nullptr};
    }
    return query.run(card, device, argument);
}

const Query *find_query(std::string_view name) {
    for (const Query &q : kQueries) {
        if (q.name == name) {
            return &q;
        }
    }
    return nullptr;
}

json reading_to_json(const Reading &reading) {
    if (reading.status == TAVO_NOT_SUPPORTED) {
        return "not supported";
    }
    if (reading.status != 0) {
        return {{"error", reading.status}};
    }
    return reading.value;
}

std::string reading_to_text(const Reading &reading) {
    if (reading.status == TAVO_NOT_SUPPORTED) {
        return "not supported";
    }
    if (reading.status != 0) {
        return "error (" + std::to_string(reading.status) + ")";
    }
    if (reading.value.is_string()) {
        return reading.value.get<std::string>();
    }
    return reading.value.dump();
}

}  // namespace tavoctl
