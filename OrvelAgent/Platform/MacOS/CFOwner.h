#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace orvel {

// Owns one reference to an object of Core Foundation or of a framework built on it; ARC does not
// count those.
template <class Ref>
class CFOwner {
public:
    CFOwner() = default;
    // Takes over the reference that a Create or Copy function returned; may be null.
    explicit CFOwner(Ref created) : object(created) {}
    // Adds a reference to one that a Get function returned, or a callback handed in.
    static CFOwner retaining(Ref borrowed) {
        if (borrowed) CFRetain(borrowed);
        return CFOwner(borrowed);
    }

    CFOwner(const CFOwner& other) : CFOwner(retaining(other.object)) {}
    CFOwner(CFOwner&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
    CFOwner& operator=(CFOwner other) noexcept {
        std::swap(object, other.object);
        return *this;
    }
    ~CFOwner() {
        if (object) CFRelease(object);
    }

    Ref get() const { return object; }
    explicit operator bool() const { return object != nullptr; }
    // For functions that return an object through a pointer. Only while this owns none.
    Ref* receive() { return &object; }

private:
    Ref object = nullptr;
};

}  // namespace orvel
