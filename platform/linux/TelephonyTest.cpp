// The phone over an oFono whose modems and calls come and go.

#include "platform/linux/Telephony.h"

#include <KYRBluetooth.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;
using tests::ScriptedService;

constexpr const char* kModemPath = "/hfp/phone";
constexpr const char* kCallPath = "/hfp/phone/voicecall01";
constexpr const char* kModemInterface = "org.ofono.Modem";
constexpr const char* kCallInterface = "org.ofono.VoiceCall";
constexpr const char* kManagerInterface = "org.ofono.VoiceCallManager";

class TelephonyTest : public UnitSetup
{
protected:
    /// An oFono with a phone that can make calls, and `calls`.
    void startOfono(const std::string& calls = "(@a(oa{sv}) [],)")
    {
        ofono_ = service("org.ofono");
        ofono_->answer("GetModems",
                       "([(@o '/hfp/phone', {'Name': <'phone'>, 'Powered': <true>, 'Interfaces': "
                       "<['org.ofono.VoiceCallManager']>})],)");
        ofono_->answer("GetCalls", calls);
        start();
        EXPECT_EQ(reasonOnce("phone", State::kUp), "");
    }

    void emit(const std::string& path, const char* interface, const std::string& signal, const std::string& arguments)
    {
        ofono_->emit(path, interface, signal, arguments);
    }

    int callState()
    {
        KYRTypeCallInfo info;
        phone_.GetCurrentCallInfo(info);
        return info.eCallState;
    }

    std::unique_ptr<ScriptedService> ofono_;
    KYRBtPhone phone_;
};

TEST_F(TelephonyTest, ModemThatIsRefusedAtFirstIsSwitchedOnLater)
{
    ofono_ = service("org.ofono");
    ofono_->answer("GetModems", "([(@o '/hfp/phone', {'Powered': <false>})],)");
    ofono_->answer("SetProperty", "!org.ofono.Error.Failed");
    start();
    EXPECT_EQ(reasonOnce("phone", State::kUp), "");
    EXPECT_THAT(ofono_->waitForCalls(2), IsSupersetOf({"SetProperty ('Powered', <true>)"}));

    ofono_->answer("SetProperty", "()");

    EXPECT_THAT(ofono_->waitForCalls(3),
                ElementsAre(testing::_, "SetProperty ('Powered', <true>)", "SetProperty ('Powered', <true>)"));
}

TEST_F(TelephonyTest, PhoneThatCanCallIsConnected)
{
    startOfono();

    EXPECT_EQ(once([this] { return phone_.GetPhoneConnectionState().nState; }, 1), 1);
    EXPECT_EQ(phone_.GetPhoneConnectionState().strText, "phone");

    emit(kModemPath, kModemInterface, "PropertyChanged", "('Interfaces', <@as []>)");
    EXPECT_EQ(once([this] { return phone_.GetPhoneConnectionState().nState; }, 0), 0);
}

TEST_F(TelephonyTest, ModemThatIsOffIsSwitchedOn)
{
    startOfono();

    emit("/", "org.ofono.Manager", "ModemAdded", "(@o '/hfp/other', {'Name': <'other'>, 'Powered': <false>})");

    EXPECT_THAT(ofono_->waitForCalls(3), IsSupersetOf({std::string("SetProperty ('Powered', <true>)")}));
}

TEST_F(TelephonyTest, CheckLeavesAModemThatIsOffAsItIs)
{
    ofono_ = service("org.ofono");
    ofono_->answer("GetModems",
                   "([(@o '/hfp/other', {'Powered': <false>}), (@o '/hfp/phone', {'Powered': <true>, 'Interfaces': "
                   "<['org.ofono.VoiceCallManager']>})],)");
    unit_.emplace(config_, Unit::Role::kCheck);

    EXPECT_EQ(reasonOnce("phone", State::kUp), "");
    EXPECT_THAT(ofono_->waitForCalls(2), ElementsAre("GetModems ()", "GetCalls ()"));
}

TEST_F(TelephonyTest, IncomingCallIsSeenAnsweredAndEnded)
{
    startOfono();
    ofono_->waitForCalls(2);
    EXPECT_EQ(callState(), Telephony::kNoCall);
    emit(kModemPath, kManagerInterface, "CallAdded",
         std::string("(@o '") + kCallPath + "', {'State': <'incoming'>, 'LineIdentification': <'+491234567'>})");
    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kIncoming}), Telephony::kIncoming);
    KYRTypeCallInfo info;
    phone_.GetCurrentCallInfo(info);
    EXPECT_EQ(info.strNumber, "+491234567");

    phone_.AcceptCall();
    EXPECT_EQ(ofono_->waitForCalls(3).back(), "Answer ()");
    emit(kCallPath, kCallInterface, "PropertyChanged", "('State', <'active'>)");
    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kActive}), Telephony::kActive);

    phone_.TerminateCall();
    EXPECT_EQ(ofono_->waitForCalls(4).back(), "Hangup ()");
    emit(kModemPath, kManagerInterface, "CallRemoved", std::string("(@o '") + kCallPath + "',)");
    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kNoCall}), Telephony::kNoCall);
}

TEST_F(TelephonyTest, CallThatIsThereAtTheStartIsSeen)
{
    startOfono(std::string("([(@o '") + kCallPath + "', {'State': <'alerting'>})],)");

    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kOutgoing}), Telephony::kOutgoing);
}

TEST_F(TelephonyTest, OfACallOnHoldAndOneThatComesInTheLatterIsTold)
{
    startOfono(std::string("([(@o '/hfp/phone/voicecall02', {'State': <'held'>}), (@o '") + kCallPath +
               "', {'State': <'waiting'>})],)");

    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kIncoming}), Telephony::kIncoming);
}

TEST_F(TelephonyTest, PhoneAndCallsGoWithOfono)
{
    startOfono(std::string("([(@o '") + kCallPath + "', {'State': <'active'>})],)");
    EXPECT_EQ(once([this] { return callState(); }, int{Telephony::kActive}), Telephony::kActive);

    ofono_.reset();

    EXPECT_EQ(reasonOnce("phone", State::kAbsent), "org.ofono is not running");
    EXPECT_EQ(callState(), Telephony::kNoCall);
    EXPECT_EQ(phone_.GetPhoneConnectionState().nState, 0);
    phone_.AcceptCall();
    phone_.TerminateCall();
}

TEST_F(TelephonyTest, OfonoThatRefusesAtFirstIsAskedAgain)
{
    ofono_ = service("org.ofono");
    ofono_->answer("GetModems", "!org.ofono.Error.InProgress");
    start();
    EXPECT_EQ(
        once([this] { return reasonOnce("phone", State::kAbsent); }, std::string("org.ofono: as the test wants it")),
        "org.ofono: as the test wants it");

    ofono_->answer("GetModems", "(@a(oa{sv}) [],)");

    EXPECT_EQ(reasonOnce("phone", State::kUp), "");
}

TEST_F(TelephonyTest, WithoutPhoneThereIsNoCall)
{
    for (auto& [interface, backend] : config_.backends) {
        backend = "off";
    }
    start();

    phone_.AcceptCall();
    EXPECT_EQ(callState(), Telephony::kNoCall);
    EXPECT_EQ(phone_.GetPhoneConnectionState().nState, 0);
}

}  // namespace
}  // namespace unit
