// Fixed-capacity pointer list: 16 slots, no growth.
#include <cstdint>

#include "tavo/cmsv.h"

namespace {

// A count outside 0..capacity means the record was never initialised.
bool count_valid(const CmsvList *list) {
    return list->count >= 0 && list->count <= CMSV_LIST_CAPACITY;
}

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_list_add(CmsvList *list, void *item) {
    if (list == nullptr || !count_valid(list)) {
        return CMSV_ERR_PARAM;
    }
    if (list->count == CMSV_LIST_CAPACITY) {
        return CMSV_ERR_LIST_FULL;
    }
    list->items[list->count] = item;
    ++list->count;
    return CMSV_OK;
}

TAVO_API void cmsv_list_free(CmsvVrfCtx *ctx, CmsvList *list, CmsvListFreeFunc freeItem) {
    if (list == nullptr || freeItem == nullptr || !count_valid(list)) {
        return;
    }
    for (int32_t i = 0; i < list->count; ++i) {
        freeItem(ctx, list->items[i]);
    }
    list->count = 0;
}

// Bubble sort: each pass carries the smallest remaining item down to the lower
// bound, which then rises by one. Only a strictly positive comparison swaps, so
// equal items keep their order.
TAVO_API uint32_t cmsv_list_sort(CmsvList *list, CmsvListCompareFunc compare) {
    if (list == nullptr || compare == nullptr || !count_valid(list)) {
        return CMSV_ERR_PARAM;
    }
    for (int32_t low = 0; low < list->count - 1; ++low) {
        bool swapped = false;
        for (int32_t j = list->count - 2; j >= low; --j) {
            if (compare(list->items[j], list->items[j + 1]) > 0) {
                void *tmp = list->items[j];
                list->items[j] = list->items[j + 1];
                list->items[j + 1] = tmp;
                swapped = true;
            }
        }
        if (!swapped) {
            break;
        }
    }
    return CMSV_OK;
}

}  // extern "C"
