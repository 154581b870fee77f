#include "platform/linux/Input.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/runtime/Report.h"
#include "protocol/Text.h"

namespace unit {
namespace {

constexpr std::size_t kMostOfAFile = 256;

/// The name under which the service has its GPIO lines.
constexpr const char* kConsumer = "engineering-unit";
constexpr const char* kLineHelp = "; gpioinfo of the package gpiod shows who uses it";

std::string lastError()
{
    return std::generic_category().message(errno);
}

std::string trimmed(std::string_view text)
{
    constexpr const char* kSpace = " \t\r\n";
    const auto begin = text.find_first_not_of(kSpace);
    return begin == std::string_view::npos ? ""
                                           : std::string(text.substr(begin, text.find_last_not_of(kSpace) - begin + 1));
}

}  // namespace

int Input::systemIoctl(int descriptor, unsigned long request, void* argument)
{
    return ioctl(descriptor, request, argument);
}

std::optional<int> Input::read(std::string& reason)
{
    return !config_.gpio.empty() ? readLine(reason) : !config_.file.empty() ? readFile(reason) : config_.value;
}

std::optional<int> Input::readLine(std::string& reason)
{
    const auto fail = [&](const char* help) {
        reason = fmt::format("line {} of {}: {}{}", config_.line, config_.gpio, lastError(), help);
        line_.reset();
        return std::nullopt;
    };
    if (!line_.valid()) {
        const host::Descriptor chip(open(config_.gpio.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!chip.valid()) {
            return fail("; correct 'gpio', or give the service's user access to it");
        }
        if (!takesLine_) {
            gpio_v2_line_info info{};
            info.offset = config_.line;
            if (ioctl_(chip.get(), GPIO_V2_GET_LINEINFO_IOCTL, &info) == 0) {
                if ((info.flags & GPIO_V2_LINE_FLAG_USED) == 0 || std::string_view(info.consumer) == kConsumer) {
                    return 0;
                }
                errno = EBUSY;
            }
            return fail(kLineHelp);
        }
        gpio_v2_line_request request{};
        request.offsets[0] = config_.line;
        request.num_lines = 1;
        std::strncpy(request.consumer, kConsumer, sizeof request.consumer - 1);
        request.config.flags = GPIO_V2_LINE_FLAG_INPUT | (config_.isActiveLow ? GPIO_V2_LINE_FLAG_ACTIVE_LOW : 0);
        if (ioctl_(chip.get(), GPIO_V2_GET_LINE_IOCTL, &request) != 0) {
            return fail(kLineHelp);
        }
        line_.reset(request.fd);
    }
    gpio_v2_line_values values{};
    values.mask = 1;
    if (ioctl_(line_.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
        return fail("");
    }
    return (values.bits & 1) != 0 ? config_.active : config_.inactive;
}

std::optional<int> Input::readFile(std::string& reason) const
{
    // Without a writer, a named pipe would hold up who opens it.
    const host::Descriptor file(open(config_.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, kMostOfAFile> text{};
    const ssize_t size = file.valid() ? ::read(file.get(), text.data(), text.size()) : -1;
    if (size < 0) {
        reason = config_.file + ": " + lastError();
        return std::nullopt;
    }
    const std::string word = trimmed({text.data(), static_cast<std::size_t>(size)});
    const auto value = config_.values.find(word);
    if (value == config_.values.end()) {
        std::vector<std::string> words;
        for (const auto& [each, number] : config_.values) {
            words.push_back(protocol::inQuotes(each));
        }
        reason = fmt::format("{}: expected a text of 'values' ({}), got {}", config_.file, fmt::join(words, ", "),
                             protocol::inQuotes(protocol::printable(word)));
        return std::nullopt;
    }
    return value->second;
}

Poller::Poller(std::chrono::milliseconds period, std::function<void()> action)
    : thread_([this, period, action = std::move(action)] {
        std::unique_lock lock(mutex_);
        do {
            lock.unlock();
            runtime::runGuarded("an input has failed", action);
            lock.lock();
        } while (!ends_.wait_for(lock, period, [this] { return isEnding_; }));
    })
{
}

Poller::~Poller()
{
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    ends_.notify_all();
    thread_.join();
}

}  // namespace unit
