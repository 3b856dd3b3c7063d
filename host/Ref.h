#pragma once

#include <concepts>
#include <memory>
#include <utility>

#include "host/Raise.h"

namespace host {

// A shared, reference-counted object reference. Nil is a legal value; using it raises
// NilObjectException in this one place instead of crashing at every call site.
template <class T>
class Ref {
public:
    Ref() = default;
    // Nil converts implicitly, as in the host language.
    // NOLINTNEXTLINE(google-explicit-constructor)
    Ref(std::nullptr_t) {}
    explicit Ref(std::shared_ptr<T> object) : object_(std::move(object)) {}
    // An upcast is implicit, as in the host. Constrained, so that other classes do not look
    // convertible and a == b between a class and its subclass has one candidate.
    // NOLINTBEGIN(google-explicit-constructor)
    template <class U>
    requires std::convertible_to<U*, T*> Ref(const Ref<U>& other) : object_(other.shared()) {}
    // NOLINTEND(google-explicit-constructor)

    T* operator->() const { return &checked(); }
    T& operator*() const { return checked(); }

    bool IsNil() const { return object_ == nullptr; }
    explicit operator bool() const { return object_ != nullptr; }
    const std::shared_ptr<T>& shared() const { return object_; }
    T* get() const { return object_.get(); }

    // Identity, as the host's "Is" compares objects.
    friend bool operator==(const Ref& a, const Ref& b) { return a.object_ == b.object_; }
    friend bool operator==(const Ref& a, std::nullptr_t) { return a.object_ == nullptr; }

private:
    T& checked() const {
        if (!object_) {
            raiseNilObject();
        }
        return *object_;
    }

    std::shared_ptr<T> object_;
};

template <class T, class... Args>
Ref<T> New(Args&&... args) {
    return Ref<T>(std::make_shared<T>(std::forward<Args>(args)...));
}

// The host's checked cast: nil stays nil, an object of another class raises IllegalCastException.
template <class T, class U>
Ref<T> Cast(const Ref<U>& from) {
    if (from.IsNil()) {
        return Ref<T>();
    }
    auto cast = std::dynamic_pointer_cast<T>(from.shared());
    if (!cast) {
        raiseIllegalCast();
    }
    return Ref<T>(std::move(cast));
}

}  // namespace host
