#pragma once

#include <chrono>
#include <functional>
#include <set>
#include <string>

#include "host/Glib.h"
#include "platform/linux/Loop.h"

namespace unit {

/// A connection to a message bus, made again a second after it is lost or could not be made. On the loop's thread, but
/// for construction and destruction.
class Bus
{
public:
    class Follower
    {
    public:
        virtual ~Follower() = default;

        /// @param connection null while there is none
        /// @param reason why there is none
        virtual void onBus(GDBusConnection* connection, const std::string& reason) = 0;
    };

    /// @param loop not owned; stopped before this object is destroyed
    Bus(Loop& loop, GBusType type);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// Tells `follower` of every change from now on, and of the present connection if there is one. Before the loop
    /// runs, or on its thread.
    void add(Follower& follower);
    void remove(Follower& follower);

    Loop& loop() { return loop_; }

private:
    void connect();
    void connected(GAsyncResult* result);
    void lost(const std::string& reason);
    void tell(const std::string& reason);

    Loop& loop_;
    const GBusType type_;
    std::set<Follower*> followers_;
    host::GlibPtr<GDBusConnection> connection_;
    host::GlibPtr<GSource> retry_;
    gulong closed_ = 0;
};

/// An object of a service on a bus. On the loop's thread, but for construction and destruction.
class BusObject : private Bus::Follower
{
public:
    struct Address {
        std::string name;
        std::string path;
        std::string interface;
        std::string package = {};  ///< of Debian, which has the service; empty: not told
    };

    struct Events {
        /// The service has come (`reason` is empty), or it is not there.
        std::function<void(const std::string& reason)> presence;
        /// Properties have changed. Also when the service has come.
        std::function<void()> properties = {};
        std::function<void(const std::string& name, GVariant* arguments)> signal = {};
    };

    /// `result` is null if there is an error.
    using Done = std::function<void(GVariant* result, const std::string& error)>;

    /// @param bus not owned, outlives this object
    BusObject(Bus& bus, Address address, Events events);
    ~BusObject() override;

    /// @returns the last known value; null while the service is not there, or if it is not of this type.
    host::GlibPtr<GVariant> property(const char* name, const GVariantType* type) const;

    /// Asks for a property whose changes the service does not tell, then says that properties have changed.
    void refresh(const std::string& name);

    /// Calls a method. `done` runs later, within `deadline`; if it is missing, an error is reported in one line.
    /// @param arguments a tuple, or null; a floating reference is taken
    void call(const std::string& method, GVariant* arguments, std::chrono::milliseconds deadline, Done done = {});

private:
    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void made(host::GlibPtr<GDBusProxy> proxy, host::GlibError& error);
    void drop();
    void tellPresence();

    Bus& bus_;
    const Address address_;
    const Events events_;
    GDBusConnection* connection_ = nullptr;  // of the bus; null while there is none
    host::GlibPtr<GDBusProxy> proxy_;
};

/// What BusObject::call() does, for any object.
/// @param connection null: there is no bus, and `done` runs at once
void callService(Loop& loop, GDBusConnection* connection, const BusObject::Address& object, const std::string& method,
                 GVariant* arguments, std::chrono::milliseconds deadline, BusObject::Done done);

}  // namespace unit
