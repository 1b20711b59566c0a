// One object of T per process, made at the first call and destroyed at unload or exit.
// The generic body serves classes that live in the caller's own library. Every platform
// service declares an explicit specialisation in its header, which the host defines once,
// out of line, so that every library of the process reaches the same object.
#pragma once

template <class T>
class singleton {
public:
    singleton(const singleton&) = delete;
    singleton& operator=(const singleton&) = delete;

    // Thread-safe at the first call.
    static T& instance() {
        static T object;
        return object;
    }

protected:
    singleton() = default;
    ~singleton() = default;
};
