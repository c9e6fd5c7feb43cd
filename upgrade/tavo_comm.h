// File helpers of the upgrade flow; TavoGetFileLength is public (tavo/tavo_upgrade.h).
#pragma once

#include "tavo/tavo_upgrade.h"
