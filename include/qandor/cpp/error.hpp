// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * How calls fail: an Error, thrown or in a Result, as the caller likes it.
 *
 * A call that can fail comes twice: send() throws, try_send() returns a Result. In a program that
 * is built without exceptions an Error that would be thrown ends the process.
 */
#pragma once

#include <glib.h>

#include <cstdlib>
#include <exception>
#include <string>
#include <utility>
#include <variant>

namespace qandor {

/** What went wrong. docs/guide/errors.md has all codes of the domain "event-error-quark".
 */
class Error : public std::exception {
public:
    Error(std::string domain, int code, std::string message)
        : domain_(std::move(domain)), code_(code), message_(std::move(message))
    {
    }

    const std::string &domain() const { return domain_; }
    int code() const { return code_; }
    const std::string &message() const { return message_; }
    const char *what() const noexcept override { return message_.c_str(); }

private:
    std::string domain_;
    int code_;
    std::string message_;
};

namespace detail {

[[noreturn]] inline void raise(const Error &error)
{
#ifdef __cpp_exceptions
    throw error;
#else
    g_error("%s", error.what());
    std::abort();
#endif
}

/** Takes a GError over. */
inline Error take_error(GError *error)
{
    Error taken(g_quark_to_string(error->domain), error->code, error->message);
    g_error_free(error);
    return taken;
}

/** An error of this face itself, which has no code of the library's. */
inline Error usage_error(std::string message)
{
    return {"qandor", 0, std::move(message)};
}

} // namespace detail

/** What a call came to: a value or an Error. */
template <class Value> class [[nodiscard]] Result {
public:
    Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return content_.index() == 0; }
    explicit operator bool() const { return ok(); }

    /** The error; only when there is one. */
    const Error &error() const { return *std::get_if<1>(&content_); }

    /** The value, or the error thrown. */
    Value &value() &
    {
        if (!ok())
            detail::raise(error());
        return *std::get_if<0>(&content_);
    }
    Value &&value() && { return std::move(value()); }

private:
    std::variant<Value, Error> content_;
};

template <> class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : content_(std::move(error)) {}

    bool ok() const { return content_.index() == 0; }
    explicit operator bool() const { return ok(); }
    const Error &error() const { return *std::get_if<1>(&content_); }
    void value() const
    {
        if (!ok())
            detail::raise(error());
    }

private:
    std::variant<std::monostate, Error> content_;
};

} // namespace qandor
