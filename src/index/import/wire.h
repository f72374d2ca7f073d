// Little-endian binary encoding for what the importer helper and the index
// exchange and store: fixed-width integers, doubles and length-prefixed
// byte strings. Readers check every length against what is left, so damaged
// or hostile bytes give an error, never a read past the end.
//
// Thread safety: plain values.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace trovara::index::wire {

static_assert(std::endian::native == std::endian::little, "the wire format is written as the machine holds it");

class Writer {
public:
    void u8(std::uint8_t v) { m_bytes.push_back(static_cast<char>(v)); }
    void u16(std::uint16_t v) { raw(&v, sizeof v); }
    void u32(std::uint32_t v) { raw(&v, sizeof v); }
    void u64(std::uint64_t v) { raw(&v, sizeof v); }
    void f64(double v) { raw(&v, sizeof v); }
    // A u32 length, then the bytes.
    void text(std::string_view v)
    {
        u32(static_cast<std::uint32_t>(v.size()));
        m_bytes.append(v);
    }
    const std::string& bytes() const { return m_bytes; }
    std::string take() { return std::move(m_bytes); }

private:
    void raw(const void* p, std::size_t n) { m_bytes.append(static_cast<const char*>(p), n); }
    std::string m_bytes;
};

// Reads in order; once a read fails, every later read fails too and ok()
// stays false.
class Reader {
public:
    explicit Reader(std::string_view bytes)
        : m_bytes(bytes)
    {
    }
    bool ok() const { return m_ok; }
    bool atEnd() const { return m_at == m_bytes.size(); }
    std::size_t remaining() const { return m_bytes.size() - m_at; }

    std::uint8_t u8() { return fixed<std::uint8_t>(); }
    std::uint16_t u16() { return fixed<std::uint16_t>(); }
    std::uint32_t u32() { return fixed<std::uint32_t>(); }
    std::uint64_t u64() { return fixed<std::uint64_t>(); }
    double f64() { return fixed<double>(); }
    std::string_view text()
    {
        const std::uint32_t length = u32();
        if (!m_ok || length > remaining()) {
            m_ok = false;
            return {};
        }
        const std::string_view value = m_bytes.substr(m_at, length);
        m_at += length;
        return value;
    }

private:
    template <typename T>
    T fixed()
    {
        T value{};
        if (!m_ok || remaining() < sizeof(T)) {
            m_ok = false;
            return value;
        }
        std::memcpy(&value, m_bytes.data() + m_at, sizeof(T));
        m_at += sizeof(T);
        return value;
    }

    std::string_view m_bytes;
    std::size_t m_at = 0;
    bool m_ok = true;
};

}  // namespace trovara::index::wire
