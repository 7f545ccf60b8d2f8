#pragma once

#include "Error.h"
#include "orv_base_export.h"
#include "Warnings.h"

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

namespace orv {

template <typename T>
class Result;

namespace detail {

/// Ends the program: a value was taken from a failed Result, or an error from a successful one.
[[noreturn]] ORV_BASE_EXPORT void failResultAccess(const char* what);

template <typename T>
inline constexpr bool isResult = false;
template <typename T>
inline constexpr bool isResult<Result<T>> = true;

} // namespace detail

/// Either a value of type @p T or the Error that prevented it, and warnings in both cases.
///
/// @code
/// Result<NetworkRequest> request = prepare(url);
/// if (request.hasError())
///     return request.error().ecatch(Q_FUNC_INFO, __FILE__, __LINE__);
/// send(request.value());
/// @endcode
///
/// Copies and moves like the T it holds: move-only types are fine. Where constructing or copying a T throws
/// during an assignment between a value and an error, the result is left as it was.
///
/// Warnings added to a failed result reach its error too.
template <typename T>
class Result : public Warnings
{
    static_assert(std::is_object_v<T> && !std::is_array_v<T>, "a Result holds an object");
    static_assert(!std::is_same_v<std::remove_cv_t<T>, Error>, "return an Error instead of a Result of one");

public:
    /// The type of the value.
    using ValueType = T;

    /// A result that holds a value made from @p value, without warnings.
    template <typename U = T>
    requires(std::constructible_from<T, U> && !std::same_as<std::remove_cvref_t<U>, Error> &&
             !detail::isResult<std::remove_cvref_t<U>>) explicit(!std::convertible_to<U, T>) Result(U&& value)
        : m_value(std::forward<U>(value))
        , m_hasValue(true)
    {
    }

    /// A failed result, with the error's warnings as its own.
    Result(Error error)
        : Warnings(error)
        , m_error(std::move(error))
        , m_hasValue(false)
    {
    }

    /// Copies what @p other holds.
    Result(const Result& other) requires std::copy_constructible<T> : Warnings(other),
                                                                      m_hasValue(other.m_hasValue)
    {
        if (m_hasValue)
            std::construct_at(std::addressof(m_value), other.m_value);
        else
            std::construct_at(std::addressof(m_error), other.m_error);
    }

    /// Moves what @p other holds, which then holds a moved-from value or error.
    Result(Result&& other) noexcept(
        std::is_nothrow_move_constructible_v<T>) requires std::move_constructible<T>
        : m_hasValue(other.m_hasValue)
    {
        if (m_hasValue)
            std::construct_at(std::addressof(m_value), std::move(other.m_value));
        else
            std::construct_at(std::addressof(m_error), std::move(other.m_error));
        Warnings::operator=(
            std::move(other)); // last, so that a throwing move of the value leaves all as it was
    }

    /// Replaces the value or error by a copy of what @p other holds.
    Result& operator=(const Result& other) requires(std::copy_constructible<T>&& std::is_copy_assignable_v<T>)
    {
        if (this == std::addressof(other))
            return *this;
        auto warnings = static_cast<const Warnings&>(other);
        if (!other.m_hasValue)
            replaceByError(Error(other.m_error));
        else if (m_hasValue)
            m_value = other.m_value;
        else
            replaceByValue(T(other.m_value));
        Warnings::operator=(std::move(warnings));
        return *this;
    }

    /// Replaces the value or error by what @p other holds, which is moved from.
    Result& operator=(Result&& other) noexcept(
        std::is_nothrow_move_constructible_v<T>&& std::is_nothrow_move_assignable_v<
            T>) requires(std::move_constructible<T>&& std::is_move_assignable_v<T>)
    {
        if (this == std::addressof(other))
            return *this;
        if (!other.m_hasValue)
            replaceByError(std::move(other.m_error));
        else if (m_hasValue)
            m_value = std::move(other.m_value);
        else
            replaceByValue(std::move(other.m_value));
        Warnings::operator=(std::move(other));
        return *this;
    }

    ~Result() override { destroyHeld(); }

    /// Whether there is a value. Warnings make no difference.
    bool hasValue() const { return m_hasValue; }
    /// Whether there is an error instead of a value.
    bool hasError() const { return !m_hasValue; }
    /// hasValue().
    explicit operator bool() const { return m_hasValue; }

    /// The value. Taking it from a failed result ends the program, so ask hasValue() first.
    const T& value() const&
    {
        requireValue();
        return m_value;
    }
    /// The value, to be moved from. Taking it from a failed result ends the program.
    T&& value() &&
    {
        requireValue();
        return std::move(m_value);
    }

    /// The error of a failed result, and success for one that holds a value.
    Error error() const { return m_hasValue ? Error() : m_error; }

    /// Appends a warning; a held error gets it too, as with the four edits below.
    void addWarning(const QString& warning) { addWarningInternal(warning); }
    /// Appends all of @p warnings.
    void addWarnings(const QList<QString>& warnings) { addWarningsInternal(warnings); }
    /// Removes all warnings.
    void clearWarnings() { clearWarningsInternal(); }
    using Warnings::resetWarning;
    using Warnings::resetWarnings;
    using Warnings::warnings;

protected:
    void addWarningInternal(const QString& warning) override
    {
        Warnings::addWarningInternal(warning);
        if (hasError())
            m_error.addWarning(warning);
    }

    void addWarningsInternal(const QList<QString>& warnings) override
    {
        Warnings::addWarningsInternal(warnings);
        if (hasError())
            m_error.addWarnings(warnings);
    }

    void clearWarningsInternal() override
    {
        Warnings::clearWarningsInternal();
        if (hasError())
            m_error.clearWarnings();
    }

    void resetWarningInternal(const QString& warning) override
    {
        Warnings::resetWarningInternal(warning);
        if (hasError())
            m_error.resetWarning(warning);
    }

    void resetWarningsInternal(const QList<QString>& warnings) override
    {
        Warnings::resetWarningsInternal(warnings);
        if (hasError())
            m_error.resetWarnings(warnings);
    }

private:
    void requireValue() const
    {
        if (!m_hasValue)
            detail::failResultAccess("Result::value() called on a failed result");
    }

    void destroyHeld()
    {
        if (m_hasValue)
            std::destroy_at(std::addressof(m_value));
        else
            std::destroy_at(std::addressof(m_error));
    }

    void replaceByError(Error error) noexcept
    {
        destroyHeld();
        std::construct_at(std::addressof(m_error), std::move(error));
        m_hasValue = false;
    }

    // Called while an error is held. It is put back should the move of the value throw.
    void replaceByValue(T&& value)
    {
        struct Restore
        {
            Result* result;
            Error error;
            ~Restore()
            {
                if (result)
                    std::construct_at(std::addressof(result->m_error), std::move(error));
            }
        };
        Restore restore{this, std::move(m_error)};
        std::destroy_at(std::addressof(m_error));
        std::construct_at(std::addressof(m_value), std::move(value));
        restore.result = nullptr;
        m_hasValue = true;
    }

    union {
        T m_value;
        Error m_error;
    };
    bool m_hasValue;
};

} // namespace orv
