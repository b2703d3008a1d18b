// A value or the exit status that explains why there is none.
#pragma once

#include <cassert>
#include <utility>

#include "status.hpp"

// Holds a value exactly when status() is ST_OK, so a caller cannot use a value that a failed
// step never produced. A failure is made from its status (`return ST_BAD_PATH;`), a success
// from its value.
template <class T>
class [[nodiscard]] Result {
public:
    Result(ExitStatus failure) : status_(failure) { assert(failure != ST_OK); }
    Result(T value) : status_(ST_OK), value_(std::move(value)) {}

    [[nodiscard]] bool ok() const { return status_ == ST_OK; }
    [[nodiscard]] ExitStatus status() const { return status_; }

    [[nodiscard]] T& value() & {
        assert(ok());
        return value_;
    }
    [[nodiscard]] const T& value() const& {
        assert(ok());
        return value_;
    }
    [[nodiscard]] T&& value() && {
        assert(ok());
        return std::move(value_);
    }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }

private:
    ExitStatus status_;
    T value_{};
};
