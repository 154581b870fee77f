#include "platform/linux/Location.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/runtime/Listeners.h"
#include "protocol/Text.h"

namespace unit {
namespace {

constexpr std::string_view kWatch = "?WATCH={\"enable\":true,\"json\":true};\n";
constexpr std::chrono::seconds kRetryGpsd{1};
constexpr gsize kChunk = 4096;

/// gpsd's longest report is some 10 kB.
constexpr std::size_t kLongestLine = 65536;

constexpr double kPerDegree = 1e7;

std::int32_t inUnits(const nlohmann::json& report, const char* key)
{
    const double degrees = report.value(key, 0.0);
    return std::abs(degrees) <= 180.0 ? static_cast<std::int32_t>(std::lround(degrees * kPerDegree)) : 0;
}

_GpsSatelliteData satellitesIn(const nlohmann::json& report)
{
    _GpsSatelliteData data{};
    for (const auto& satellite : report["satellites"]) {
        if (data.nCount < std::ssize(data.nNumber) && satellite.is_object()) {
            data.nNumber[data.nCount] = satellite.value("PRN", 0);
            data.nSignal[data.nCount] =
                static_cast<std::int32_t>(std::lround(std::clamp(satellite.value("ss", 0.0), 0.0, 255.0)));
            ++data.nCount;
        }
    }
    return data;
}

}  // namespace

Location::Location(UnitConfig::Location config, Loop& loop, StatusBoard& board)
    : config_(std::move(config)), loop_(loop), board_(board)
{
    loop_.post([this] { connect(); });
}

void Location::connect()
{
    retry_.reset();
    const host::GlibPtr<GSocketClient> client(g_socket_client_new());
    g_socket_client_connect_to_host_async(
        client.get(), config_.host.c_str(), config_.port, loop_.cancellable(), Loop::complete,
        loop_.expect([this](GObject* source, GAsyncResult* result) {
            host::GlibError error;
            connection_.reset(g_socket_client_connect_to_host_finish(G_SOCKET_CLIENT(source), result, error.out()));
            if (error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                return;
            }
            // The question fits into the buffer of a new connection.
            if (!connection_ ||
                !g_output_stream_write_all(g_io_stream_get_output_stream(G_IO_STREAM(connection_.get())), kWatch.data(),
                                           kWatch.size(), nullptr, nullptr, error.out())) {
                lost(protocol::printable(error.message()));
                return;
            }
            board_.set("location", State::kUp);
            read();
        }));
}

void Location::read()
{
    g_input_stream_read_bytes_async(
        g_io_stream_get_input_stream(G_IO_STREAM(connection_.get())), kChunk, G_PRIORITY_DEFAULT, loop_.cancellable(),
        Loop::complete, loop_.expect([this](GObject* source, GAsyncResult* result) {
            host::GlibError error;
            GBytes* const bytes = g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, error.out());
            if (error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                return;
            }
            gsize size = 0;
            const auto* const data =
                bytes == nullptr ? nullptr : static_cast<const char*>(g_bytes_get_data(bytes, &size));
            if (size > 0) {
                take({data, size});
            }
            g_bytes_unref(bytes);
            if (size == 0) {
                lost(bytes == nullptr ? protocol::printable(error.message()) : "gpsd has closed the connection");
            } else if (received_.size() > kLongestLine) {
                lost(fmt::format("expected lines of at most {} bytes from gpsd, got a longer one", kLongestLine));
            } else {
                read();
            }
        }));
}

void Location::lost(const std::string& reason)
{
    connection_.reset();
    received_.clear();
    board_.set("location", State::kAbsent, fmt::format("{}:{}: {}", config_.host, config_.port, reason));
    retry_ = loop_.after(kRetryGpsd, [this] { connect(); });
}

void Location::take(std::string_view bytes)
{
    received_ += bytes;
    std::size_t begin = 0;
    for (auto end = received_.find('\n'); end != std::string::npos; end = received_.find('\n', begin)) {
        report(received_.substr(begin, end - begin));
        begin = end + 1;
    }
    received_.erase(0, begin);
}

void Location::report(const std::string& line)
try {
    const auto report = nlohmann::json::parse(line);
    const std::string kind = report.value("class", "");
    if (kind == "SKY" && report.contains("satellites") && report["satellites"].is_array()) {
        runtime::tellListeners(
            *this, [data = satellitesIn(report)](IKYRLocationListener& listener) { listener.OnAASatinfoChange(data); });
    } else if (kind == "TPV") {
        constexpr int kFix2d = 2;
        const bool had = std::exchange(hasFix_, report.value("mode", 0) >= kFix2d && report.contains("lat"));
        if (had || hasFix_) {
            _LocationData data{};
            data.nLatitude = hasFix_ ? inUnits(report, "lat") : 0;
            data.nLongitude = hasFix_ ? inUnits(report, "lon") : 0;
            runtime::tellListeners(*this,
                                   [data](IKYRLocationListener& listener) { listener.OnAALocationChange(data); });
        }
    }
} catch (const nlohmann::json::exception&) {
    // Not a report: the next line is.
}

}  // namespace unit
