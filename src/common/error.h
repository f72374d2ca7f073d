// Errors that reach a person, and the result type that carries them.
//
// An Error has what a person needs to understand and recover: a one-line
// description, the reason, and where there is one a suggestion. Library code
// returns Result<T> and never throws across its boundary.
#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>
#include <utility>
#include <variant>

namespace trovara {

struct Error {
    // The generic domain of errors about the user's own files and actions.
    static constexpr const char* kGenericDomain = "Trovara";
    // Generic codes, kept stable because callers compare them.
    enum Code : int {
        kNone = 0,
        kFileReadError = 256,
        kFileReadCorruptError = 259,
        kFileReadUnknownVersionError = 260,
        kFileWriteError = 512,
        kFileWriteOutOfSpaceError = 640,
        kUserCancelledError = 3072,
        kFetchError = 134060,
        kValidationError = 1550,
    };

    QString domain = kGenericDomain;
    int code = kNone;
    QString description;
    QString reason;
    QString suggestion;
    QVariantMap userInfo;

    static Error make(int code, QString description, QString reason = {}, QString suggestion = {})
    {
        Error error;
        error.code = code;
        error.description = std::move(description);
        error.reason = std::move(reason);
        error.suggestion = std::move(suggestion);
        return error;
    }

    // "description (reason) suggestion" on one line, for logs and the CLI.
    QString toString() const;
};

// Either a value or the Error that prevented it.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_state(std::move(value)) {}  // NOLINT: implicit by design
    Result(Error error) : m_state(std::move(error)) {}  // NOLINT: implicit by design

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }

    T& value() & { return std::get<T>(m_state); }
    const T& value() const& { return std::get<T>(m_state); }
    T&& value() && { return std::get<T>(std::move(m_state)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

    const Error& error() const { return std::get<Error>(m_state); }

private:
    std::variant<T, Error> m_state;
};

template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : m_error(std::move(error)) {}  // NOLINT: implicit by design

    bool ok() const { return !m_error.has_value(); }
    explicit operator bool() const { return ok(); }
    const Error& error() const { return *m_error; }

private:
    std::optional<Error> m_error;
};

using Status = Result<void>;

}  // namespace trovara
