#pragma once

#include <sys/stat.h>

namespace tests {

/// Sets this process's umask, which the programs that it starts inherit, as long as the object lives.
class Umask
{
public:
    explicit Umask(mode_t mask) : old_(umask(mask)) {}
    ~Umask() { umask(old_); }

    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    const mode_t old_;
};

}  // namespace tests
