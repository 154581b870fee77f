#pragma once

#include <KYRBluetooth.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"

namespace unit {

/// The phone over oFono: its modems are the phones that BlueZ has connected. Any thread, but for construction and
/// destruction.
class Telephony : private Bus::Follower
{
public:
    /// The call states of this platform, which leaves their numbers to it.
    enum CallState {
        kNoCall = 0,
        kIncoming = 1,
        kOutgoing = 2,
        kActive = 3,  ///< also on hold
    };

    /// @param serves whether to switch on the modems that are off
    Telephony(Bus& systemBus, StatusBoard& board, bool serves);
    ~Telephony() override;

    /// Answers the first call that comes in. Does nothing without one.
    void accept();

    /// Ends all calls.
    void terminate();

    /// Connected if a modem can make calls; the text is its name.
    KYRBtConnectionState connection() const;

    /// The call that comes first: an incoming one, then an active one.
    KYRTypeCallInfo call() const;

private:
    struct Modem {
        std::string name;
        bool powered = false;
        bool canCall = false;
        std::string refusal = {};  // the last one, of oFono to switch it on
    };
    struct Call {
        std::string state;
        std::string number;
    };

    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void leave();
    void forget();
    void ask();
    void onSignal(const std::string& path, const std::string& interface, const std::string& signal,
                  GVariant* arguments);
    void readModem(const std::string& path, GVariant* properties);
    void switchOn(const std::string& path);
    void setModem(const std::string& path, const std::string& name, GVariant* value);
    void readCall(const std::string& path, GVariant* properties);
    void setCall(const std::string& path, const std::string& name, GVariant* value);
    void callModem(const std::string& path, const std::string& interface, const std::string& method,
                   GVariant* arguments, BusObject::Done done = {});
    void show();

    Bus& bus_;
    StatusBoard& board_;
    const bool serves_;

    mutable std::mutex mutex_;
    KYRBtConnectionState connection_;  // guarded by mutex_
    KYRTypeCallInfo call_;             // guarded by mutex_

    // Of the loop.
    GDBusConnection* dbus_ = nullptr;
    guint watch_ = 0;
    guint subscription_ = 0;
    host::GlibPtr<GSource> retry_;
    host::GlibPtr<GSource> switchOn_;
    int asked_ = 0;  // number of the questions whose answers count
    std::map<std::string, Modem> modems_;
    std::map<std::string, Call> calls_;
};

}  // namespace unit
