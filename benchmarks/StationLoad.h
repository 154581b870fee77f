#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace benchmarks {

/// Measures a program that answers requests on a terminal, as the station sees it: time and CPU time. Throws
/// std::runtime_error.
class StationLoad
{
public:
    using Bytes = std::vector<std::uint8_t>;

    struct Latency {
        double p50Us;
        double p99Us;
    };

    /// @param path the station's end of the line
    /// @param pid the program that answers
    StationLoad(const std::string& path, pid_t pid);
    ~StationLoad();
    StationLoad(const StationLoad&) = delete;
    StationLoad& operator=(const StationLoad&) = delete;

    /// Sends once and discards replies until the line is quiet.
    void sendAndDrain(const Bytes& bytes);

    /// One request at a time, each answered by `replySize` bytes.
    Latency roundTrip(const Bytes& request, std::size_t replySize, int count);

    /// Up to 64 requests under way.
    /// @returns thousands of frames per second.
    double pipelined(const Bytes& request, std::size_t replySize, int count)
    {
        return window(request, replySize, count, 64);
    }

    /// As many requests under way as the terminal takes.
    double flood(const Bytes& request, std::size_t replySize, int count)
    {
        return window(request, replySize, count, 400);
    }

    /// A request every millisecond, about what a line of 115200 baud can bring.
    /// @returns microseconds of CPU time, of all its threads, that the program needs for one.
    double pacedCpuUs(const Bytes& request, std::size_t replySize, int count);

private:
    double window(const Bytes& request, std::size_t replySize, int count, std::size_t mostUnderWay);
    void write(const std::uint8_t* bytes, std::size_t size) const;
    void read(std::size_t size) const;
    double cpuSeconds() const;

    int line_ = -1;
    clockid_t clock_{};
};

/// A process that answers every `requestSize` bytes with one write of `replySize` bytes: the cost of the kernel for a
/// terminal and two processes. It ends with the object.
class Echo
{
public:
    Echo(std::size_t requestSize, std::size_t replySize);
    ~Echo();
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

    const std::string& path() const { return path_; }
    pid_t pid() const { return pid_; }

private:
    std::string path_;
    pid_t pid_ = -1;
};

}  // namespace benchmarks
