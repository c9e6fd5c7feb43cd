// Per-card facts that the device-management library does not report, taken from
// the board description file.
#pragma once

namespace tavo::api {

// Gives the cards named by "mcu_card=" lines of the board description an MCU
// device id and their chips' chip slots, and those named by "kite_card=" lines
// their embedded SoC. Without such lines (or without the file) the table stays as
// it is. Malformed lines are logged and skipped.
void apply_board_description();

}  // namespace tavo::api
