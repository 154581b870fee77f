#include "platform/linux/StatusBus.h"

#include <fmt/chrono.h>

#include <utility>

#include "unit_dbus.h"

namespace unit {
namespace {

constexpr const char* kUnitBusName = "com.zent.linux.unit";
constexpr const char* kUnitObject = "/com/zent/linux/unit";

std::string timeOf(const InterfaceStatus& status)
{
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}",
                       fmt::gmtime(std::chrono::time_point_cast<std::chrono::seconds>(status.since)));
}

gboolean answerStatus(ComZentLinuxUnit* object, GDBusMethodInvocation* invocation, gpointer board)
{
    GVariantBuilder interfaces;
    g_variant_builder_init(&interfaces, G_VARIANT_TYPE("a(sssss)"));
    for (const InterfaceStatus& status : static_cast<StatusBoard*>(board)->all()) {
        g_variant_builder_add(&interfaces, "(sssss)", status.interface.c_str(), status.backend.c_str(),
                              nameOf(status.state), status.reason.c_str(), timeOf(status).c_str());
    }
    com_zent_linux_unit_complete_get_status(object, invocation, g_variant_builder_end(&interfaces));
    return TRUE;
}

}  // namespace

StatusBus::StatusBus(Bus& sessionBus, StatusBoard& board)
    : bus_(sessionBus), board_(board), object_(G_DBUS_INTERFACE_SKELETON(com_zent_linux_unit_skeleton_new()))
{
    g_signal_connect(object_.get(), "handle-get-status", G_CALLBACK(answerStatus), &board_);
    bus_.add(*this);
    board_.watch([this](const InterfaceStatus& status) {
        bus_.loop().post([this, status] {
            com_zent_linux_unit_emit_status_changed(COM_ZENT_LINUX_UNIT(object_.get()), status.interface.c_str(),
                                                    status.backend.c_str(), nameOf(status.state), status.reason.c_str(),
                                                    timeOf(status).c_str());
        });
    });
}

StatusBus::~StatusBus()
{
    board_.watch({});
    bus_.remove(*this);
    release();
}

void StatusBus::onBus(GDBusConnection* connection, const std::string&)
{
    release();
    if (connection != nullptr && g_dbus_interface_skeleton_export(object_.get(), connection, kUnitObject, nullptr)) {
        owner_ = g_bus_own_name_on_connection(connection, kUnitBusName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr,
                                              nullptr, nullptr);
    }
}

void StatusBus::release()
{
    if (owner_ != 0) {
        g_bus_unown_name(std::exchange(owner_, 0));
    }
    if (g_dbus_interface_skeleton_get_connection(object_.get()) != nullptr) {
        g_dbus_interface_skeleton_unexport(object_.get());
    }
}

BusStatus::BusStatus(Bus& bus, StatusBoard& board, std::string name) : bus_(bus), board_(board), name_(std::move(name))
{
    board_.add(name_, "dbus");
    bus_.add(*this);
}

BusStatus::~BusStatus()
{
    bus_.remove(*this);
}

void BusStatus::onBus(GDBusConnection* connection, const std::string& reason)
{
    board_.set(name_, connection != nullptr ? State::kUp : State::kAbsent, reason);
}

}  // namespace unit
