/* Marks a definition as part of libtavo's exported API. */
#ifndef TAVO_TAVO_EXPORT_H
#define TAVO_TAVO_EXPORT_H

#if defined(TAVO_BUILDING_LIBRARY)
#define TAVO_API __attribute__((visibility("default")))
#else
#define TAVO_API
#endif

#endif
