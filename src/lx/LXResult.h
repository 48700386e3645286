#pragma once

#include "lx/LXError.h"

#include <optional>
#include <utility>
#include <variant>

// A value or the reason there is none. Factories return this instead of half-built objects:
//   auto file = LXAudioFile::open(path);
//   if (!file) return file.error();
template <typename T> class [[nodiscard]] LXResult {
public:
    LXResult(T value) : m_value(std::move(value)) {}
    LXResult(LXError error) : m_value(std::move(error)) {}

    explicit operator bool() const { return std::holds_alternative<T>(m_value); }
    bool ok() const { return bool(*this); }

    T& value() & { return std::get<T>(m_value); }
    const T& value() const& { return std::get<T>(m_value); }
    T&& value() && { return std::get<T>(std::move(m_value)); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    const LXError& error() const { return std::get<LXError>(m_value); }

private:
    std::variant<T, LXError> m_value;
};

template <> class [[nodiscard]] LXResult<void> {
public:
    LXResult() = default;
    LXResult(LXError error) : m_error(std::move(error)) {}

    explicit operator bool() const { return !m_error.has_value(); }
    bool ok() const { return !m_error.has_value(); }
    const LXError& error() const { return *m_error; }

private:
    std::optional<LXError> m_error;
};

using LXStatus = LXResult<void>;

// Propagates an error out of a function that returns an LXResult of any kind.
#define LX_TRY(expr)                                                                                         \
    do {                                                                                                     \
        auto lx_try_result_ = (expr);                                                                        \
        if (!lx_try_result_) return lx_try_result_.error();                                                  \
    } while (false)
