// tavoctl's commands; each returns the process exit status.
#pragma once

#include "output.h"

namespace tavoctl {

int run_list(const Options &options);
int run_board_type(const Options &options);

}  // namespace tavoctl
