#include "station/record/RecordReader.h"

#include <cmath>
#include <limits>

#include "station/Hex.h"
#include "station/record/RecordJson.h"
#include "station/record/ValueText.h"

namespace station::record {

void RecordReader::fail(const std::string& what) const
{
    constexpr std::size_t kShown = 40;
    std::string found =
        json_.is_structured() ? json_.type_name() : json_.dump(-1, ' ', true, Json::error_handler_t::replace);
    if (found.size() > kShown) {
        found.replace(kShown, std::string::npos, "…");
    }
    throw RecordError("at " + (place_.empty() ? "the top" : place_) + ": " + what + ", not " + found);
}

RecordReader RecordReader::at(const char* key) const
{
    if (auto found = find(key)) {
        return *found;
    }
    throw RecordError("at " + (place_.empty() ? "the top" : place_) + ": the key \"" + key + "\" is missing");
}

std::optional<RecordReader> RecordReader::find(const char* key) const
{
    if (!json_.is_object()) {
        fail("an object was expected");
    }
    const auto found = json_.find(key);
    if (found == json_.end()) {
        return std::nullopt;
    }
    return RecordReader(*found, place_ + '/' + key);
}

std::string RecordReader::text() const
{
    if (!json_.is_string()) {
        fail("a text was expected");
    }
    return json_.get<std::string>();
}

double RecordReader::number() const
{
    if (json_.is_null()) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (!json_.is_number()) {
        fail("a number was expected");
    }
    return json_.get<double>();
}

unsigned RecordReader::whole() const
{
    const double value = number();
    if (!(value >= 0 && value <= std::numeric_limits<unsigned>::max() && value == std::trunc(value))) {
        fail("a whole number from 0 on was expected");
    }
    return static_cast<unsigned>(value);
}

bool RecordReader::yes() const
{
    if (!json_.is_boolean()) {
        fail("true or false was expected");
    }
    return json_.get<bool>();
}

Scalar RecordReader::scalar() const
{
    if (json_.is_string()) {
        return text();
    }
    if (json_.is_boolean()) {
        return yes();
    }
    if (json_.is_structured()) {
        fail("a number, a text, true or false was expected");
    }
    return number();
}

std::uint8_t RecordReader::byte() const
{
    const std::string digits = text();
    const auto value = parseByte(digits);
    if (!value || digits.size() != 2) {
        fail("two hexadecimal digits were expected");
    }
    return *value;
}

std::vector<std::uint8_t> RecordReader::bytes() const
{
    const std::string digits = text();
    std::vector<std::uint8_t> values;
    for (std::size_t at = 0; at < digits.size(); at += 3) {
        const auto value = parseByte(std::string_view(digits).substr(at, 2));
        const bool lastOrSpace = at + 2 == digits.size() || (at + 3 < digits.size() && digits[at + 2] == ' ');
        if (!value || at + 2 > digits.size() || !lastOrSpace) {
            fail("bytes in hexadecimal with one space between were expected");
        }
        values.push_back(*value);
    }
    return values;
}

}  // namespace station::record
