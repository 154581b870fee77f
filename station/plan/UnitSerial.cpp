#include "station/plan/UnitSerial.h"

#include "station/record/ValueText.h"

namespace station::plan {

using record::printable;

void SerialsAtPorts::add(const std::string& port, const std::string& serial)
{
    const std::lock_guard lock(mutex_);
    const std::string& first = ports_.try_emplace(serial, port).first->second;
    if (first != port) {
        const auto clashWith = [&](const std::string& other) {
            return "the unit at " + printable(other) + " holds the same serial " + printable(serial);
        };
        clashes_.try_emplace(port, clashWith(first));
        clashes_.try_emplace(first, clashWith(port));
    }
}

std::string SerialsAtPorts::clashOf(const std::string& port) const
{
    const std::lock_guard lock(mutex_);
    const auto clash = clashes_.find(port);
    return clash == clashes_.end() ? std::string() : clash->second;
}

void UnitSerial::give(const std::string& serial)
{
    if (record_.isNone(serial)) {
        return;
    }
    if (mismatch_.empty() && !given_.empty() && given_ != serial) {
        mismatch_ = "the operator gave two serials, " + printable(given_) + " and " + printable(serial);
    }
    given_ = serial;
    compare();
}

void UnitSerial::tell(const std::string& serial)
{
    if (record_.isNone(serial)) {
        return;
    }
    others_.add(port_, serial);
    told_ = serial;
    if (!written_) {
        brought_ = serial;
        compare();
    }
}

void UnitSerial::compare()
{
    if (mismatch_.empty() && !given_.empty() && !brought_.empty() && given_ != brought_) {
        mismatch_ = "the unit holds serial " + printable(brought_) + ", expected " + printable(given_) +
                    ", which the operator gave";
    }
}

}  // namespace station::plan
