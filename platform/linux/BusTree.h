#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/Bus.h"

namespace unit {

/// All objects of a service that tells about them through org.freedesktop.DBus.ObjectManager, with their properties. On
/// the loop's thread, but for construction and destruction. (GIO's own client waits for the service in the middle of
/// the loop.)
class BusTree : private Bus::Follower
{
public:
    struct Events {
        /// The service has come (`reason` is empty) and its objects are known, or it is not there.
        std::function<void(const std::string& reason)> presence;
        /// An object or a property has changed.
        std::function<void()> changed;
    };

    /// @param bus not owned, outlives this object
    /// @param root path of the object that manages the others
    BusTree(Bus& bus, std::string name, std::string root, Events events);
    ~BusTree() override;

    /// @returns the paths of the objects that have `interface`, in their order.
    std::vector<std::string> pathsWith(const std::string& interface) const;

    /// @returns the property of an object; null if it is not there, or not of this type.
    host::GlibPtr<GVariant> property(const std::string& path, const std::string& interface, const std::string& name,
                                     const GVariantType* type) const;

    /// The same for the usual types: empty, or false, without the property.
    std::string text(const std::string& path, const std::string& interface, const std::string& name) const;
    bool flag(const std::string& path, const std::string& interface, const std::string& name) const;

    /// As BusObject::call().
    void call(const std::string& path, const std::string& interface, const std::string& method, GVariant* arguments,
              std::chrono::milliseconds deadline, BusObject::Done done = {});

private:
    using Properties = std::map<std::string, host::GlibPtr<GVariant>>;

    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void leave();
    void vanished();
    void ask();
    void take(GVariant* objects);
    void add(const std::string& path, GVariant* interfaces);
    void onSignal(const std::string& path, const std::string& signal, GVariant* arguments);
    void set(Properties& properties, GVariant* changes);

    Bus& bus_;
    const std::string name_;
    const std::string root_;
    const Events events_;
    GDBusConnection* connection_ = nullptr;  // of the bus; null while there is none
    guint watch_ = 0;
    guint subscription_ = 0;
    host::GlibPtr<GSource> retry_;
    int asked_ = 0;       // number of the question whose answer counts
    bool known_ = false;  // the objects
    std::map<std::string, std::map<std::string, Properties>> objects_;
};

}  // namespace unit
