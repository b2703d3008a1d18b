// A value or the exit status that explains why there is none.
#pragma once

#include <cstdlib>
#include <optional>
#include <utility>

#include "status.hpp"

// Holds a value exactly when status() is ST_OK, so a caller cannot use a value that a failed
// step never produced. A failure is made from its status (`return ST_BAD_PATH;`), a success
// from its value. Both rules are checked in every build: a set-user-ID program that read a
// value from a failure would act on something nobody verified, so it stops instead.
template <class T>
class [[nodiscard]] Result {
public:
    Result(ExitStatus failure) : status_(failure) {
        if (failure == ST_OK) {
            std::abort();
        }
    }
    Result(T value) : status_(ST_OK), value_(std::move(value)) {}

    [[nodiscard]] bool ok() const { return status_ == ST_OK; }
    [[nodiscard]] ExitStatus status() const { return status_; }

    [[nodiscard]] T& value() & { return checked(value_); }
    [[nodiscard]] const T& value() const& { return checked(value_); }
    [[nodiscard]] T&& value() && { return std::move(checked(value_)); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

private:
    template <class V>
    static auto& checked(V& v) {
        if (!v) {
            std::abort();
        }
        return *v;
    }

    ExitStatus status_;
    std::optional<T> value_;
};
