// A value or an error, for the index engine (which stays free of Qt and of
// exceptions across its interface).
#pragma once

#include <string>
#include <utility>
#include <variant>

namespace trovara::index {

// An error of the index engine: what went wrong, in words a person can act on.
struct Failure {
    enum class Kind {
        InvalidQuery,     // the query text does not parse
        InvalidArgument,  // a bad folder, option or value
        Io,               // the file system refused
        Busy,             // another process is updating the index
        Corrupt,          // a damaged or foreign database
        Version,          // a database of another format version
        Interrupted,      // stopped on request
        Internal,
    };
    Kind kind = Kind::Internal;
    std::string message;
};

template <typename T, typename E = Failure>
class [[nodiscard]] Expected {
public:
    Expected(T value) : m_state(std::in_place_index<0>, std::move(value)) {}  // NOLINT: implicit by design
    Expected(E error) : m_state(std::in_place_index<1>, std::move(error)) {}  // NOLINT: implicit by design

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }
    T& value() & { return std::get<0>(m_state); }
    const T& value() const& { return std::get<0>(m_state); }
    T&& value() && { return std::get<0>(std::move(m_state)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    const E& error() const { return std::get<1>(m_state); }

private:
    std::variant<T, E> m_state;
};

template <typename E>
class [[nodiscard]] Expected<void, E> {
public:
    Expected() = default;
    Expected(E error) : m_error(std::move(error)), m_failed(true) {}  // NOLINT: implicit by design
    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    const E& error() const { return m_error; }

private:
    E m_error{};
    bool m_failed = false;
};

}  // namespace trovara::index
