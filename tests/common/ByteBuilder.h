#pragma once

// Assembles little-endian byte sequences by hand, value by value, so that a test can state the
// exact bytes a section must hold without going through the library's own writers. The bytes
// are built with shifts, independently of the host's byte order and of the library's I/O code.

#include <cstdint>
#include <cstring>
#include <string>

namespace dtm_test {

class ByteBuilder {
public:
    ByteBuilder& Int8(std::int8_t value) { return Unsigned(static_cast<std::uint8_t>(value), 1); }
    ByteBuilder& Int16(std::int16_t value) {
        return Unsigned(static_cast<std::uint16_t>(value), 2);
    }
    ByteBuilder& UInt16(std::uint16_t value) { return Unsigned(value, 2); }
    ByteBuilder& Int32(std::int32_t value) {
        return Unsigned(static_cast<std::uint32_t>(value), 4);
    }
    ByteBuilder& UInt32(std::uint32_t value) { return Unsigned(value, 4); }
    ByteBuilder& Int64(std::int64_t value) {
        return Unsigned(static_cast<std::uint64_t>(value), 8);
    }
    ByteBuilder& UInt64(std::uint64_t value) { return Unsigned(value, 8); }
    /// IEEE binary64, little-endian.
    ByteBuilder& Double(double value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        return Unsigned(bits, 8);
    }
    /// IEEE binary32, little-endian.
    ByteBuilder& Float(float value) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof(bits));
        return Unsigned(bits, 4);
    }
    /// A boolean as sections store one: a 4-byte integer, 1 or 0.
    ByteBuilder& Bool32(bool value) { return Int32(value ? 1 : 0); }
    /// Raw bytes, as they are (no length, no terminator).
    ByteBuilder& Bytes(const std::string& bytes) {
        m_bytes += bytes;
        return *this;
    }
    /// Raw bytes, as they are; @p size may include zero bytes.
    ByteBuilder& Bytes(const char* bytes, std::size_t size) {
        m_bytes.append(bytes, size);
        return *this;
    }
    /// Appends what another builder holds.
    ByteBuilder& Append(const ByteBuilder& other) { return Bytes(other.m_bytes); }

    /// The bytes so far.
    const std::string& Str() const { return m_bytes; }
    std::size_t Size() const { return m_bytes.size(); }

private:
    ByteBuilder& Unsigned(std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i)
            m_bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFFu));
        return *this;
    }

    std::string m_bytes;
};

}  // namespace dtm_test
