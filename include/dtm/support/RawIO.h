#pragma once

/// @file
/// Raw little-endian values on document streams: one write or read call per value, no tags,
/// no padding. Sections are built only from these calls.

#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>
#include <type_traits>

namespace dtm {
namespace io {

namespace detail {

constexpr bool HostIsLittleEndian() {
#if defined(__BYTE_ORDER__) && defined(__ORDER_BIG_ENDIAN__) && \
    __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return false;
#else
    return true;
#endif
}

/// Puts the bytes of a value into document order (little-endian) or back; a no-op on
/// little-endian hosts.
inline void ToDocumentOrder(unsigned char* bytes, std::size_t size) {
    if (HostIsLittleEndian()) return;
    for (std::size_t i = 0; i < size / 2; ++i) {
        const unsigned char swapped = bytes[i];
        bytes[i] = bytes[size - 1 - i];
        bytes[size - 1 - i] = swapped;
    }
}

}  // namespace detail

/// Writes @p value as its raw bytes in little-endian order.
template <class T>
void WriteRaw(std::ostream& stream, T value) {
    static_assert(std::is_arithmetic<T>::value || std::is_enum<T>::value, "plain values only");
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    detail::ToDocumentOrder(bytes, sizeof(T));
    stream.write(reinterpret_cast<const char*>(bytes), sizeof(T));
}

/// Reads one raw little-endian value. On a short read @p value is left untouched, the stream is
/// in its failed state, and the answer is false.
template <class T>
bool ReadRaw(std::istream& stream, T& value) {
    static_assert(std::is_arithmetic<T>::value || std::is_enum<T>::value, "plain values only");
    unsigned char bytes[sizeof(T)];
    stream.read(reinterpret_cast<char*>(bytes), sizeof(T));
    if (!stream || stream.gcount() != static_cast<std::streamsize>(sizeof(T))) {
        stream.setstate(std::ios::failbit);
        return false;
    }
    detail::ToDocumentOrder(bytes, sizeof(T));
    std::memcpy(&value, bytes, sizeof(T));
    return true;
}

/// Writes a boolean the way sections store one: a 4-byte integer, 1 or 0.
inline void WriteBool32(std::ostream& stream, bool value) {
    WriteRaw<std::int32_t>(stream, value ? 1 : 0);
}

/// Reads a boolean stored as a 4-byte integer: any value greater than zero is true, so that a
/// writer's 1, or any other positive value it used for true, reads as true, and zero or a
/// negative value as false. A section whose flag takes only 1 as true reads its int32 itself.
/// On a short read @p value is left untouched and the answer is false.
inline bool ReadBool32(std::istream& stream, bool& value) {
    std::int32_t stored = 0;
    if (!ReadRaw(stream, stored)) return false;
    value = stored > 0;
    return true;
}

/// Reads @p size bytes in small chunks and hands each to @p sink(const char*, size_t), so that a
/// corrupt size can never make the reader reserve memory the stream does not hold. False, with
/// the stream failed, when the stream ends first.
template <class Sink>
bool ReadChunks(std::istream& stream, std::uint64_t size, Sink sink) {
    char scratch[256];
    while (size > 0) {
        const std::streamsize chunk =
            static_cast<std::streamsize>(size < sizeof(scratch) ? size : sizeof(scratch));
        stream.read(scratch, chunk);
        if (!stream || stream.gcount() != chunk) {
            stream.setstate(std::ios::failbit);
            return false;
        }
        sink(scratch, static_cast<std::size_t>(chunk));
        size -= static_cast<std::uint64_t>(chunk);
    }
    return true;
}

/// Reads and discards @p size bytes; false when the stream ended first.
inline bool SkipBytes(std::istream& stream, std::uint64_t size) {
    return ReadChunks(stream, size, [](const char*, std::size_t) {});
}

/// Reads @p size bytes of text into @p text; on a short read @p text is left untouched.
inline bool ReadText(std::istream& stream, std::uint64_t size, std::string& text) {
    std::string read;
    if (!ReadChunks(stream, size,
                    [&read](const char* bytes, std::size_t count) { read.append(bytes, count); }))
        return false;
    text.swap(read);
    return true;
}

/// Reads a string stored as an int32 length and, when the length is above 0, that many bytes
/// into @p text. A length of 0 or below is an empty string with no bytes behind it. A last zero
/// byte is dropped: some writers store the terminator with the string. Only that one byte goes;
/// zero bytes before it are part of the string. On a short read @p text is left untouched; the
/// string grows only as bytes arrive, so a damaged length stops at the stream's end.
inline bool ReadCountedText(std::istream& stream, std::string& text) {
    std::int32_t length = 0;
    if (!ReadRaw(stream, length)) return false;
    std::string read;
    if (length > 0 && !ReadText(stream, static_cast<std::uint64_t>(length), read)) return false;
    if (!read.empty() && read.back() == '\0') read.pop_back();
    text.swap(read);
    return true;
}

}  // namespace io
}  // namespace dtm
