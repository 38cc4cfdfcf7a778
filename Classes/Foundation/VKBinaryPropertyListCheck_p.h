// A structural check of binary property lists before libplist parses them: libplist follows
// object references recursively without a depth limit, so a small hostile file of nested arrays
// (or arrays that contain themselves) overflows the stack. Not installed.
#pragma once

#include <cstddef>

// True when the data is a well-formed binary property list whose containers nest at most
// `maximumDepth` levels and never contain themselves; false for anything else.
bool vkBinaryPropertyListIsShallow(const char *data, size_t size, int maximumDepth);
