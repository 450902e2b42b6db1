#pragma once

// The CRC-32 that guards each block of a document against damage.

#include <cstddef>
#include <cstdint>

namespace dtmtool {

/// CRC-32 (the polynomial of zip and PNG, reflected, initial and final value 0xFFFFFFFF) of
/// @p size bytes at @p data, continued from @p crc (0 for a fresh checksum).
std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t crc = 0) noexcept;

namespace detail {

/// The same checksum from tables alone, as Crc32 computes it on a processor without a
/// carry-less multiply (and for the last bytes of any buffer); for tests.
std::uint32_t Crc32ByTables(const void* data, std::size_t size, std::uint32_t crc = 0) noexcept;

/// True when Crc32 folds long buffers with the processor's carry-less multiply.
bool Crc32FoldsWithCarrylessMultiply() noexcept;

}  // namespace detail

}  // namespace dtmtool
