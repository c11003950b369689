#pragma once
// SHA-256 of bytes already in memory, for the chain of custody of an input.
#include <cstdint>
#include <span>
#include <string>

// 64 lower-case hex digits; "" when the digest cannot be made (no memory).
std::string sha256_hex(std::span<std::uint8_t const> bytes);
