#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

namespace tav {

/// Why something that was asked of the outside has no value.
enum class Lack : std::uint8_t {
    Absent,     ///< there is no such thing
    Refused,    ///< there is, or there may be, but it cannot be read now
    Malformed,  ///< it was read, and is not what it has to be
};

/// What an errno of open(), read() or readlink() says.
constexpr Lack lackOf(int error) {
    const bool isAbsent = error == ENOENT || error == ENOTDIR || error == ENXIO || error == ENODEV;
    return isAbsent ? Lack::Absent : Lack::Refused;
}

/// A value that was read or decoded, or why there is none.
template <class Value>
class Answer {
 public:
    Answer(Value value) : value_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    Answer(Lack lack) : lack_(lack) {}                 // NOLINT(google-explicit-constructor)

    explicit operator bool() const noexcept { return value_.has_value(); }
    const Value& operator*() const& { return *value_; }
    Value& operator*() & { return *value_; }
    Value operator*() && { return *std::move(value_); }
    const Value* operator->() const { return &*value_; }
    Value* operator->() { return &*value_; }

    Value valueOr(Value other) const& { return value_ ? *value_ : std::move(other); }
    Value valueOr(Value other) && { return value_ ? *std::move(value_) : std::move(other); }

    /// Only of an answer without a value.
    Lack lack() const noexcept { return lack_; }

    bool operator==(const Answer&) const = default;
    bool operator==(Lack lack) const { return !value_ && lack_ == lack; }
    template <class Other>
    bool operator==(const Other& other) const {
        return value_.has_value() && *value_ == other;
    }

 private:
    std::optional<Value> value_;
    Lack lack_ = Lack::Absent;
};

}  // namespace tav
