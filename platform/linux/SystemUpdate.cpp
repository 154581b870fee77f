#include "platform/linux/SystemUpdate.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>
#include <vector>

#include "protocol/Text.h"

namespace unit {
namespace {

constexpr const char* kRauc = "de.pengutronix.rauc";
constexpr std::chrono::seconds kRaucDeadline{10};

}  // namespace

SystemUpdate::SystemUpdate(std::map<int, std::string> bundles, Bus& systemBus, StatusBoard& board,
                           runtime::Reporter reporter, std::chrono::milliseconds retry)
    : bundles_(std::move(bundles))
    , bus_(systemBus)
    , board_(board)
    , reporter_(std::move(reporter))
    , retryAfter_(retry)
    , driver_(systemBus, {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"},
              {.presence = [](const std::string&) {}})
    , rauc_(systemBus, {kRauc, "/", "de.pengutronix.rauc.Installer", "rauc-service"},
            {.presence = [this](const std::string& reason) { onPresence(reason); },
             .properties = [this] { showProgress(); },
             .signal =
                 [this](const std::string& name, GVariant* arguments) {
                     if (name != "Completed" || !g_variant_is_of_type(arguments, G_VARIANT_TYPE("(i)"))) {
                         return;
                     }
                     gint32 result = 0;
                     g_variant_get(arguments, "(i)", &result);
                     const auto error = rauc_.property("LastError", G_VARIANT_TYPE_STRING);
                     const std::string text = error ? g_variant_get_string(error.get(), nullptr) : "";
                     ended(result == 0    ? ""
                           : text.empty() ? fmt::format("RAUC has failed with {}", result)
                                          : protocol::printable(text));
                 }})
{
}

void SystemUpdate::onPresence(const std::string& reason)
{
    absence_ = reason;
    retry_.reset();
    board_.set("system-update", reason.empty() ? State::kUp : State::kAbsent, reason);
    if (!reason.empty() && !installing_.empty()) {
        ended(reason);
    }
    // Without a bus there is nothing to ask.
    if (reason.starts_with(kRauc)) {
        start([](const std::string&) {});
    }
}

/// Nothing but the bus starts RAUC: its unit has no target that wants it. A start that fails is tried again.
void SystemUpdate::start(std::function<void(const std::string& error)> done)
{
    retry_.reset();
    driver_.call("StartServiceByName", g_variant_new("(su)", kRauc, 0), kRaucDeadline,
                 [this, done = std::move(done)](GVariant*, const std::string& error) {
                     if (!error.empty() && absence_.starts_with(kRauc)) {
                         board_.set("system-update", State::kAbsent, fmt::format("{}; its start: {}", absence_, error));
                     }
                     if (absence_.starts_with(kRauc)) {
                         retry_ = bus_.loop().after(retryAfter_, [this] { start([](const std::string&) {}); });
                     }
                     done(error);
                 });
}

void SystemUpdate::Request(int nCode)
{
    const auto bundle = bundles_.find(nCode);
    if (bundle == bundles_.end()) {
        std::vector<int> codes;
        for (const auto& [code, path] : bundles_) {
            codes.push_back(code);
        }
        report(fmt::format("expected a code of 'bundles' ({}), got {}", fmt::join(codes, ", "), nCode));
        return;
    }
    bus_.loop().post([this, nCode, path = bundle->second] { install(nCode, path); });
}

void SystemUpdate::install(int code, const std::string& bundle)
{
    // RAUC itself refuses while it installs for someone else.
    if (!installing_.empty()) {
        report(fmt::format("the request {} is refused: {} is being installed", code, installing_));
        return;
    }
    installing_ = bundle;
    progress_.clear();
    report(bundle + " is being installed");
    // Completed tells the result, before or after the answer.
    const auto endIfFailed = [this, request = ++requests_](const std::string& error) {
        if (!error.empty() && request == requests_ && !installing_.empty()) {
            ended(error);
        }
        return request != requests_ || installing_.empty();
    };
    const auto begin = [this, bundle, endIfFailed](const std::string& startError) {
        if (!endIfFailed(startError)) {
            rauc_.call("InstallBundle", g_variant_new("(sa{sv})", bundle.c_str(), nullptr), kRaucDeadline,
                       [endIfFailed](GVariant*, const std::string& error) { endIfFailed(error); });
        }
    };
    // The bus refuses to start a service without a service file, also if it runs.
    absence_.empty() ? begin("") : start(begin);
}

void SystemUpdate::showProgress()
{
    const auto progress = rauc_.property("Progress", G_VARIANT_TYPE("(isi)"));
    if (!progress || installing_.empty()) {
        return;
    }
    gint32 percent = 0;
    const gchar* step = nullptr;
    g_variant_get(progress.get(), "(i&si)", &percent, &step, nullptr);
    const std::string now = fmt::format("{} %, {}", percent, protocol::printable(step));
    if (std::exchange(progress_, now) != now) {
        report(fmt::format("{}: {}", installing_, now));
    }
}

void SystemUpdate::ended(const std::string& error)
{
    const std::string bundle = installing_.empty() ? "a bundle" : std::exchange(installing_, "");
    report(error.empty() ? bundle + " is installed" : fmt::format("{} is not installed: {}", bundle, error));
}

}  // namespace unit
