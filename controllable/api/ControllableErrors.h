#pragma once

#include <cstdint>

namespace qvrControllableAPI
{
// Every mutating operation of the parameter framework returns one of these.
// Anything but kOk means that nothing was stored.
using ErrorCode = std::int32_t;

constexpr ErrorCode kOk = 0;
constexpr ErrorCode kNotFound = 1;     // index out of range, element not found
constexpr ErrorCode kUnsupported = -1; // the object does not support the operation
} // namespace qvrControllableAPI
