#include "programs/station/Tool.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ext/stdio_sync_filebuf.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <streambuf>
#include <string_view>
#include <system_error>

#include "host/Descriptor.h"
#include "programs/Cli.h"
#include "protocol/Text.h"
#include "station/ports/SerialPorts.h"
#include "station/record/ResultsFolder.h"

namespace programs::station_tool {

std::string checkNotEmpty(const std::string& text)
{
    return text.empty() ? "expected a text, got none" : "";
}

void printJson(nlohmann::ordered_json object)
{
    nlohmann::ordered_json line{{"schema", kSchema}};
    line.update(object);
    // The line may send bytes that are not UTF-8.
    const std::string text = line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::puts(protocol::printableJson(text).c_str());
}

void printText(const std::string& text, bool json)
{
    json ? printJson({{"text", text}}) : static_cast<void>(std::fputs(text.c_str(), stdout));
}

int printError(const std::string& line, const char* kind, ExitStatus status, bool json)
{
    if (json) {
        printJson({{"error", line}, {"kind", kind}, {"status", static_cast<int>(status)}});
    } else {
        complain(kProgram, line);
    }
    return status;
}

bool isDumbTerminal()
{
    const char* terminal = std::getenv("TERM");
    return terminal == nullptr || *terminal == '\0' || std::string_view(terminal) == "dumb";
}

bool outputsAreOne()
{
    struct stat output {
    };
    struct stat errors {
    };
    return fstat(STDOUT_FILENO, &output) == 0 && fstat(STDERR_FILENO, &errors) == 0 && output.st_dev == errors.st_dev &&
           output.st_ino == errors.st_ino;
}

bool colourWanted(int descriptor)
{
    const char* refused = std::getenv("NO_COLOR");
    return (refused == nullptr || *refused == '\0') && !isDumbTerminal() && isatty(descriptor) == 1;
}

void addPort(CLI::App& verb, station::PortSpec& port)
{
    port = station::parsePort(station::defaultPort());
    verb.add_option_function<std::string>(
            "--port", [&port](const std::string& text) { port = station::parsePort(text); },
            "PATH[,BAUD]: serial device or pseudo-terminal; by default 115200 baud")
        ->check(station::checkPort)
        ->type_name("PORT")
        ->default_str(station::defaultPort());
}

std::string resultsFolder(const Tool& tool, const std::string& given)
{
    const std::string stations = given.empty() ? tool.stationsResults() : given;
    return stations.empty() ? station::record::kDefaultResults : stations;
}

void addTimeout(CLI::App& verb, double& seconds)
{
    verb.add_option("--timeout", seconds, "Wait this long for the reply, such as 0.2")
        ->check(secondsUpTo(86400))
        ->type_name("SECONDS")
        ->default_val(seconds);
}

void addReconnect(CLI::App& verb, double& seconds)
{
    CLI::Option* option = verb.add_option("--reconnect", seconds, "Wait this long for a device that has gone")
                              ->type_name("SECONDS")
                              ->check(secondsUpTo(kForEver));
    if (seconds >= kForEver) {
        option->default_str("no limit");
    } else {
        option->default_val(seconds);
    }
}

void addResults(CLI::App& verb, std::string& directory)
{
    verb.add_option("--results", directory, "Results directory")
        ->type_name("DIR")
        ->default_str(station::record::kDefaultResults);
}

std::chrono::nanoseconds fromSeconds(double seconds)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(std::max(seconds, 0.0)));
}

void addCommandWords(CLI::App& verb, std::string& command, std::vector<std::string>& arguments)
{
    verb.add_option("COMMAND", command,
                    "GROUP.COMMAND as 'catalogue list' prints it, or the group's code in hexadecimal")
        ->type_name("COMMAND")
        ->required();
    verb.add_option("ARGUMENT", arguments,
                    "NAME=VALUE for each parameter: a number, the name of a choice, a number with its unit (87.5MHz), "
                    "text, or bytes (00:1A:7D); or the command's code and at most 252 parameter bytes in hexadecimal");
}

namespace {

[[noreturn]] void failToRead(const std::string& path, int error)
{
    throw protocol::UserError(fmt::format("{}: {}", nameOfInput(path), protocol::unreadable(error)));
}

/// Reads a descriptor as far as it has come; every wait can be interrupted.
class InputBuffer : public std::streambuf
{
public:
    InputBuffer(const std::string& path, const station::Interrupt& interrupt)
        : path_(path)
        , interrupt_(interrupt)
        // Without O_NONBLOCK the opening of a pipe without a writer would wait, and could not be interrupted.
        , file_(path == "-" ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        if (path != "-" && !file_.valid()) {
            failToRead(path, errno);
        }
    }

protected:
    int_type underflow() override
    {
        const int input = path_ == "-" ? STDIN_FILENO : file_.get();
        for (;;) {
            std::array<pollfd, 2> waits{pollfd{input, POLLIN, 0}, pollfd{interrupt_.descriptor(), POLLIN, 0}};
            if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
                failToRead(path_, errno);
            }
            if (interrupt_.requested()) {
                throw station::Interrupted();
            }
            if (waits[0].revents == 0) {
                continue;
            }
            const ssize_t count = read(input, chunk_.data(), chunk_.size());
            if (count < 0 && errno != EINTR && errno != EAGAIN) {
                failToRead(path_, errno);
            }
            if (count >= 0) {
                setg(chunk_.data(), chunk_.data(), chunk_.data() + count);
                return count == 0 ? traits_type::eof() : traits_type::to_int_type(chunk_.front());
            }
        }
    }

private:
    std::string path_;
    const station::Interrupt& interrupt_;
    host::Descriptor file_;
    std::array<char, 65536> chunk_{};
};

class InputStream : public std::istream
{
public:
    InputStream(const std::string& path, const station::Interrupt& interrupt)
        : std::istream(nullptr), buffer_(path, interrupt)
    {
        rdbuf(&buffer_);
        // What the buffer throws comes through.
        exceptions(std::ios::badbit);
    }

private:
    InputBuffer buffer_;
};

}  // namespace

std::string readInput(const std::string& path, const station::Interrupt& interrupt)
{
    const auto input = openInput(path, interrupt);
    std::string text;
    for (std::array<char, 65536> chunk;;) {
        const auto count = input->rdbuf()->sgetn(chunk.data(), chunk.size());
        if (count == 0) {
            return text;
        }
        text.append(chunk.data(), static_cast<std::size_t>(count));
        if (text.size() > kLongestInput) {
            throw protocol::UserError(fmt::format("{}: expected at most {} MiB, got more", path, kLongestInput >> 20));
        }
    }
}

std::unique_ptr<std::istream> openInput(const std::string& path, const station::Interrupt& interrupt)
{
    return std::make_unique<InputStream>(path, interrupt);
}

std::string nameOfInput(const std::string& path)
{
    return path == "-" ? "standard input" : path;
}

void addCaptureTerms(CLI::App& verb, station::CaptureTerms& terms)
{
    std::vector<std::string> names{"auto"};
    std::ranges::transform(station::kCaptureFormats, std::back_inserter(names), &station::CaptureFormat::name);
    verb.add_option("--format", terms.format, "Form of the capture")->check(CLI::IsMember(names))->default_str("auto");
    verb.add_option("--station", terms.stationChannel,
                    "Channel of the capture that the station sends on; by default TX")
        ->type_name("CHANNEL")
        ->check(checkNotEmpty);
}

void complainOfFile(const std::string& line)
{
    std::fprintf(stderr, "%s\n", protocol::printable(line).c_str());
}

void complainOfIgnored(const std::string& capture, const std::string& what)
{
    if (!what.empty()) {
        complain(kProgram, fmt::format("{}: ignored {}", capture, what));
    }
}

namespace {

/// The errno of the first write that failed; 0 for none.
std::atomic<int> failure = 0;

/// Writes all of it.
/// @returns how much was written: less when that failed.
ssize_t writeOut(void*, const char* data, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t written = write(STDOUT_FILENO, data + done, size - done);
        if (written < 0) {
            int none = 0;
            failure.compare_exchange_strong(none, errno);
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

void watchStandardOutput()
{
    // A stream only remembers that it failed. At the end, errno is from another call.
    cookie_io_functions_t functions{};
    functions.write = writeOut;
    FILE* watched = fopencookie(nullptr, "w", functions);
    if (watched == nullptr) {
        return;
    }
    std::setvbuf(watched, nullptr, isatty(STDOUT_FILENO) == 1 ? _IOLBF : _IOFBF, BUFSIZ);
    stdout = watched;
    // As long as the process, which std::cout outlives.
    std::cout.rdbuf(new __gnu_cxx::stdio_sync_filebuf<char>(watched));
}

int flushStandardOutput()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return 0;
    }
    const int first = failure;
    return first != 0 ? first : EIO;
}

}  // namespace programs::station_tool
