#include "platform/linux/BusTree.h"

#include <cstring>
#include <utility>

#include "protocol/Text.h"

namespace unit {
namespace {

constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr std::chrono::seconds kTreeDeadline{5};

}  // namespace

BusTree::BusTree(Bus& bus, std::string name, std::string root, Events events)
    : bus_(bus), name_(std::move(name)), root_(std::move(root)), events_(std::move(events))
{
    bus_.add(*this);
}

BusTree::~BusTree()
{
    bus_.remove(*this);
    leave();
}

void BusTree::leave()
{
    if (connection_ != nullptr) {
        g_bus_unwatch_name(watch_);
        g_dbus_connection_signal_unsubscribe(connection_, subscription_);
        connection_ = nullptr;
    }
    retry_.reset();
    objects_.clear();
    known_ = false;
    ++asked_;
}

void BusTree::onBus(GDBusConnection* connection, const std::string& reason)
{
    leave();
    if (connection == nullptr) {
        events_.presence(reason);
        return;
    }
    connection_ = connection;
    subscription_ = g_dbus_connection_signal_subscribe(
        connection, name_.c_str(), nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar* path, const gchar*, const gchar* signal, GVariant* arguments,
           gpointer self) { static_cast<BusTree*>(self)->onSignal(path, signal, arguments); },
        this, nullptr);
    watch_ = g_bus_watch_name_on_connection(
        connection, name_.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, gpointer self) { static_cast<BusTree*>(self)->ask(); },
        [](GDBusConnection*, const gchar*, gpointer self) { static_cast<BusTree*>(self)->vanished(); }, this, nullptr);
}

void BusTree::vanished()
{
    retry_.reset();
    objects_.clear();
    known_ = false;
    ++asked_;
    events_.presence(name_ + " is not running");
}

void BusTree::ask()
{
    retry_.reset();
    call(root_, kObjectManager, "GetManagedObjects", nullptr, kTreeDeadline,
         [this, number = ++asked_](GVariant* result, const std::string& error) {
             if (number != asked_) {
                 return;
             }
             if (result == nullptr || !g_variant_is_of_type(result, G_VARIANT_TYPE("(a{oa{sa{sv}}})"))) {
                 events_.presence(name_ + (error.empty() ? ": not an object manager" : ": " + error));
                 retry_ = bus_.loop().after(kTreeDeadline, [this] { ask(); });
                 return;
             }
             take(result);
         });
}

void BusTree::take(GVariant* objects)
{
    objects_.clear();
    GVariantIter* all = nullptr;
    g_variant_get(objects, "(a{oa{sa{sv}}})", &all);
    const char* path = nullptr;
    GVariant* interfaces = nullptr;
    while (g_variant_iter_loop(all, "{&o@a{sa{sv}}}", &path, &interfaces)) {
        add(path, interfaces);
    }
    g_variant_iter_free(all);
    known_ = true;
    events_.presence("");
    events_.changed();
}

void BusTree::add(const std::string& path, GVariant* interfaces)
{
    GVariantIter all;
    g_variant_iter_init(&all, interfaces);
    const char* interface = nullptr;
    GVariant* properties = nullptr;
    while (g_variant_iter_loop(&all, "{&s@a{sv}}", &interface, &properties)) {
        set(objects_[path][interface], properties);
    }
}

void BusTree::set(Properties& properties, GVariant* changes)
{
    GVariantIter all;
    g_variant_iter_init(&all, changes);
    const char* name = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_loop(&all, "{&sv}", &name, &value)) {
        properties[name].reset(g_variant_ref(value));
    }
}

void BusTree::onSignal(const std::string& path, const std::string& signal, GVariant* arguments)
{
    if (!known_) {
        return;
    }
    if (signal == "PropertiesChanged" && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(sa{sv}as)"))) {
        const char* interface = nullptr;
        GVariant* changes = nullptr;
        g_variant_get(arguments, "(&s@a{sv}as)", &interface, &changes, nullptr);
        const host::GlibPtr<GVariant> owner(changes);
        const auto object = objects_.find(path);
        if (object == objects_.end() || !object->second.contains(interface)) {
            return;
        }
        set(object->second[interface], changes);
    } else if (signal == "InterfacesAdded" && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(oa{sa{sv}})"))) {
        const char* object = nullptr;
        GVariant* interfaces = nullptr;
        g_variant_get(arguments, "(&o@a{sa{sv}})", &object, &interfaces);
        const host::GlibPtr<GVariant> owner(interfaces);
        add(object, interfaces);
    } else if (signal == "InterfacesRemoved" && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(oas)"))) {
        const char* object = nullptr;
        const gchar** names = nullptr;
        g_variant_get(arguments, "(&o^a&s)", &object, &names);
        for (const gchar** name = names; *name != nullptr; ++name) {
            objects_[object].erase(*name);
        }
        g_free(names);
        if (objects_[object].empty()) {
            objects_.erase(object);
        }
    } else {
        return;
    }
    events_.changed();
}

std::vector<std::string> BusTree::pathsWith(const std::string& interface) const
{
    std::vector<std::string> paths;
    for (const auto& [path, interfaces] : objects_) {
        if (interfaces.contains(interface)) {
            paths.push_back(path);
        }
    }
    return paths;
}

host::GlibPtr<GVariant> BusTree::property(const std::string& path, const std::string& interface,
                                          const std::string& name, const GVariantType* type) const
{
    const auto object = objects_.find(path);
    if (object == objects_.end()) {
        return nullptr;
    }
    const auto properties = object->second.find(interface);
    if (properties == object->second.end()) {
        return nullptr;
    }
    const auto value = properties->second.find(name);
    const bool is = value != properties->second.end() && g_variant_is_of_type(value->second.get(), type);
    return host::GlibPtr<GVariant>(is ? g_variant_ref(value->second.get()) : nullptr);
}

std::string BusTree::text(const std::string& path, const std::string& interface, const std::string& name) const
{
    auto value = property(path, interface, name, G_VARIANT_TYPE_STRING);
    if (!value) {
        value = property(path, interface, name, G_VARIANT_TYPE_OBJECT_PATH);
    }
    return value ? g_variant_get_string(value.get(), nullptr) : "";
}

bool BusTree::flag(const std::string& path, const std::string& interface, const std::string& name) const
{
    const auto value = property(path, interface, name, G_VARIANT_TYPE_BOOLEAN);
    return value && g_variant_get_boolean(value.get());
}

void BusTree::call(const std::string& path, const std::string& interface, const std::string& method,
                   GVariant* arguments, std::chrono::milliseconds deadline, BusObject::Done done)
{
    callService(bus_.loop(), connection_, {name_, path, interface}, method, arguments, deadline, std::move(done));
}

}  // namespace unit
