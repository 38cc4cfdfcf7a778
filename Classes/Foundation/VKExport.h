// Symbol visibility for the shared library: everything is hidden unless marked VK_EXPORT.
#pragma once

#if defined(_WIN32)
#if defined(VK_BUILDING_LIBRARY)
#define VK_EXPORT __declspec(dllexport)
#else
#define VK_EXPORT __declspec(dllimport)
#endif
#else
#define VK_EXPORT __attribute__((visibility("default")))
#endif
