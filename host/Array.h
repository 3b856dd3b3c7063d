#pragma once

#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

#include "host/Raise.h"

namespace host {

// The host's zero-based array. Every access is checked and an index out of range raises
// OutOfBoundsException, as the host language does.
template <class T>
class Array {
public:
    Array() = default;
    // Like the host's Dim a(n): elements 0 to upperBound, default-initialised.
    explicit Array(std::int64_t upperBound) { Resize(upperBound); }
    Array(std::initializer_list<T> items) : items_(items) {}

    std::int64_t Ubound() const { return static_cast<std::int64_t>(items_.size()) - 1; }
    std::int64_t Count() const { return static_cast<std::int64_t>(items_.size()); }

    T& operator[](std::int64_t index) { return items_[checked(index)]; }
    const T& operator[](std::int64_t index) const { return items_[checked(index)]; }

    void Append(T item) { items_.push_back(std::move(item)); }
    // Insert before index; index Count() appends.
    void Insert(std::int64_t index, T item) {
        if (index != Count()) {
            checked(index);
        }
        items_.insert(items_.begin() + index, std::move(item));
    }
    void Remove(std::int64_t index) { items_.erase(items_.begin() + checked(index)); }
    // Like the host's Redim: -1 empties the array; lower values raise.
    void Resize(std::int64_t upperBound) {
        if (upperBound < -1) {
            raiseOutOfBounds(upperBound, Ubound());
        }
        items_.resize(static_cast<std::size_t>(upperBound + 1));
    }

    auto begin() { return items_.begin(); }
    auto end() { return items_.end(); }
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }

private:
    std::size_t checked(std::int64_t index) const {
        if (index < 0 || index >= Count()) {
            raiseOutOfBounds(index, Ubound());
        }
        return static_cast<std::size_t>(index);
    }

    std::vector<T> items_;
};

}  // namespace host
