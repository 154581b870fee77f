#include "tests/support/LogRecorder.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <mutex>

#include "KYRLog.h"

/// zlog 1.2.18 sets its defaults up twice when it is configured from a text, and loses the first.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libzlog";
}

namespace {

/// Never destroyed: the service's threads log until the process has ended.
struct Record {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;   // guarded by mutex
    std::vector<std::string> places;  // guarded by mutex
};
Record& g_record = *new Record;

constexpr const char* kRules =
    "[formats]\n"
    "line = \"%F:%L %U\t%V %m\"\n"
    "[rules]\n"
    "engineering.DEBUG $record; line\n";

int keep(zlog_msg_t* message)
{
    const std::string line(message->buf, message->len);
    const std::size_t placeEnd = line.find('\t');
    {
        const std::lock_guard lock(g_record.mutex);
        g_record.places.push_back(line.substr(0, placeEnd));
        g_record.lines.push_back(line.substr(placeEnd + 1));
    }
    g_record.changed.notify_all();
    return 0;
}

zlog_category_t* makeCategory()
{
    if (zlog_init_from_string(kRules) != 0) {
        std::cerr << "zlog refused the recorder's rules" << std::endl;
        std::abort();
    }
    zlog_set_record("record", keep);
    return zlog_get_category("engineering");
}

}  // namespace

LogRecorder::LogRecorder()
{
    static zlog_category_t* const category = makeCategory();
    liblog_category = category;
    clear();
}

std::vector<std::string> LogRecorder::lines() const
{
    const std::lock_guard lock(g_record.mutex);
    return g_record.lines;
}

std::vector<std::string> LogRecorder::places() const
{
    const std::lock_guard lock(g_record.mutex);
    return g_record.places;
}

std::vector<std::string> LogRecorder::errors() const
{
    std::vector<std::string> errors = lines();
    std::erase_if(errors, [](const std::string& line) { return !line.starts_with("ERROR "); });
    return errors;
}

bool LogRecorder::waitFor(const std::string& beginning) const
{
    std::unique_lock lock(g_record.mutex);
    return g_record.changed.wait_for(lock, std::chrono::seconds(20), [&] {
        return std::ranges::any_of(g_record.lines,
                                   [&](const std::string& line) { return line.starts_with(beginning); });
    });
}

void LogRecorder::clear()
{
    const std::lock_guard lock(g_record.mutex);
    g_record.lines.clear();
    g_record.places.clear();
}
