// Base for classes that own process resources (module handles, sessions) and
// therefore must never be copied or assigned by accident.
#pragma once

namespace Korvex {

class Uncopyable {
protected:
    Uncopyable() = default;
    ~Uncopyable() = default;

public:
    Uncopyable(const Uncopyable&) = delete;
    Uncopyable& operator=(const Uncopyable&) = delete;
};

} // namespace Korvex
