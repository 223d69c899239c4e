#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace marquetry::model {

/// The SHA-256 digest of `bytes` as 64 lower-case hexadecimal digits. Pure;
/// safe on any thread.
std::string sha256Hex(std::span<const std::uint8_t> bytes);

} // namespace marquetry::model
