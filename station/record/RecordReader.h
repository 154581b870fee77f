#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "station/record/RunRecord.h"

namespace station::record {

/// A value of a record that is being read, with the JSON Pointer of its place. Everything that is not there, or not of
/// the wanted type, is a RecordError that names the place. Points into the document.
class RecordReader
{
public:
    using Json = nlohmann::ordered_json;

    RecordReader(const Json& json, std::string place) : json_(json), place_(std::move(place)) {}

    [[noreturn]] void fail(const std::string& what) const;

    RecordReader at(const char* key) const;
    /// @returns nothing when the object lacks the key.
    std::optional<RecordReader> find(const char* key) const;

    bool isNull() const { return json_.is_null(); }
    std::string text() const;
    /// A null is a number that JSON cannot hold: not a number.
    double number() const;
    unsigned whole() const;
    bool yes() const;
    Scalar scalar() const;
    /// Two hexadecimal digits; several of them with one space between.
    std::uint8_t byte() const;
    std::vector<std::uint8_t> bytes() const;

    template <typename Read>
    auto each(Read read) const
    {
        if (!json_.is_array()) {
            fail("an array was expected");
        }
        std::vector<decltype(read(*this))> values;
        values.reserve(json_.size());
        for (std::size_t i = 0; i < json_.size(); ++i) {
            values.push_back(read(RecordReader(json_[i], place_ + '/' + std::to_string(i))));
        }
        return values;
    }

private:
    const Json& json_;
    std::string place_;
};

}  // namespace station::record
