#include "protocol/catalogue/Fields.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "protocol/Frame.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Number.h"

namespace protocol::catalogue {

namespace {

bool isHexDigit(std::uint8_t c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

std::int64_t numberOf(Type type, Bytes bytes)
{
    const std::uint32_t number = fromBigEndian(bytes);
    return type == Type::kI32be ? static_cast<std::int64_t>(static_cast<std::int32_t>(number))
                                : static_cast<std::int64_t>(number);
}

/// How many bytes the numbers of a record take.
std::size_t recordSize(std::span<const Field> fields)
{
    return std::accumulate(fields.begin(), fields.end(), std::size_t{0},
                           [](std::size_t sum, const Field& field) { return sum + sizeOf(field.type); });
}

/// Takes fields off the front of the parameter bytes.
class Reader
{
public:
    Reader(std::span<const Field> fields, Bytes params) : fields_(fields), left_(params) {}

    FieldValues read()
    {
        for (const Field& field : fields_) {
            if (!readField(field)) {
                break;
            }
        }
        values_.rest.assign(left_.begin(), left_.end());
        return std::move(values_);
    }

private:
    Bytes take(std::size_t count)
    {
        const Bytes taken = left_.first(count);
        left_ = left_.subspan(count);
        return taken;
    }

    void complain(const Field& field, const std::string& what)
    {
        values_.problems.push_back(fmt::format("{}: {}", field.name, what));
    }

    void add(const Field& field, Value value, std::string problem)
    {
        if (!problem.empty()) {
            complain(field, problem);
        }
        values_.fields.push_back({&field, std::move(value), std::move(problem)});
    }

    /// @returns false if nothing after the field can be read.
    bool readField(const Field& field)
    {
        if (left_.empty() && field.optional) {
            return false;
        }
        if (field.type == Type::kRecords) {
            return readRecords(field);
        }
        if (sizeOf(field.type) == 0) {
            readText(field);
            return true;
        }
        return readNumber(field);
    }

    bool readNumber(const Field& field)
    {
        const std::size_t size = sizeOf(field.type);
        if (left_.size() < size) {
            complain(field, fmt::format("expected {}, got {}", plural(size, "byte"),
                                        left_.empty() ? "none" : fmt::to_string(left_.size())));
            return false;
        }
        const std::int64_t number = numberOf(field.type, take(size));
        count_ = number;
        add(field, number, numberProblem(field, number));
        return true;
    }

    /// Takes all bytes: a text or bytes are the last field.
    void readText(const Field& field)
    {
        const Bytes bytes = take(left_.size());
        Value value = field.type == Type::kBytes ? Value(std::vector<std::uint8_t>(bytes.begin(), bytes.end()))
                                                 : Value(std::string(bytes.begin(), bytes.end()));
        std::string problem = textProblem(field, bytes);
        if (field.lenient && !problem.empty()) {
            values_.remarks.push_back(fmt::format("unusual {}, {}", field.name, std::exchange(problem, {})));
        }
        add(field, std::move(value), std::move(problem));
    }

    static std::string textProblem(const Field& field, Bytes bytes)
    {
        const auto size = static_cast<std::int64_t>(bytes.size());
        if (size < field.minimum || size > field.maximum) {
            return fmt::format("expected {}, got {}", describe(field), plural(bytes.size(), "byte"));
        }
        if (field.type == Type::kHexText && !std::ranges::all_of(bytes, isHexDigit)) {
            return "expected hexadecimal digits only, got others";
        }
        const std::string text(bytes.begin(), bytes.end());
        if (field.type == Type::kAscii && printable(text) != text) {
            return "expected printable UTF-8, got other bytes";
        }
        return {};
    }

    bool readRecords(const Field& field)
    {
        const std::size_t size = recordSize(field.fields);
        const std::size_t there = left_.size() / size;
        const auto announced = static_cast<std::size_t>(std::max<std::int64_t>(count_, 0));
        std::vector<Record> records;
        std::string problem;
        while (records.size() < std::min(announced, there)) {
            FieldValues values = decodeFields(field.fields, take(size));
            for (const std::string& each : values.problems) {
                complain(field, fmt::format("record {}: {}", records.size() + 1, each));
            }
            records.push_back(std::move(values.fields));
        }
        const auto read = static_cast<std::int64_t>(records.size());
        const bool whole = records.size() == announced;
        if (!whole) {
            problem = fmt::format("expected {}, got {}", plural(announced, "record"), read);
        } else if (read < field.minimum || read > field.maximum) {
            problem = fmt::format("expected {}, got {}", describe(field), read);
        }
        add(field, std::move(records), std::move(problem));
        return whole;
    }

    std::span<const Field> fields_;
    Bytes left_;
    /// The last number: of the records that follow, if any.
    std::int64_t count_ = 0;
    FieldValues values_;
};

}  // namespace

FieldValues decodeFields(std::span<const Field> fields, Bytes params)
{
    return Reader(fields, params).read();
}

}  // namespace protocol::catalogue
