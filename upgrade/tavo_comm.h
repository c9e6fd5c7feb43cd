// File helpers of the upgrade flow.
#pragma once

#include <cstdint>

// Length of the file at `path`, which must resolve (realpath) and be shorter than
// 4096 characters; an unusable path prints "Upgrade file path is illegal." on
// standard output. 0 or -1.
int TavoGetFileLength(const char *path, uint32_t *length);
