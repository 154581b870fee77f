// Location over a gpsd that reports, reports nonsense, goes away and comes back.

#include <KYRLocation.h>
#include <sys/socket.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::kGenerous;

/// A gpsd for one client after another.
class Gpsd
{
public:
    Gpsd()
        : listener_(g_socket_listener_new())
        , port_(g_socket_listener_add_any_inet_port(listener_.get(), nullptr, nullptr))
    {
    }

    std::uint16_t port() const { return port_; }

    /// Waits for the client and for what it asks.
    std::string accept()
    {
        client_.reset(g_socket_listener_accept(listener_.get(), nullptr, nullptr, nullptr));
        char asked[64] = {};
        g_input_stream_read(g_io_stream_get_input_stream(G_IO_STREAM(client_.get())), asked, sizeof asked - 1, nullptr,
                            nullptr);
        return asked;
    }

    void say(const std::string& text)
    {
        g_output_stream_write_all(g_io_stream_get_output_stream(G_IO_STREAM(client_.get())), text.data(), text.size(),
                                  nullptr, nullptr, nullptr);
    }

    void hangUp() { client_.reset(); }

private:
    const host::GlibPtr<GSocketListener> listener_;
    const std::uint16_t port_;
    host::GlibPtr<GSocketConnection> client_;
};

class Positions : public IKYRLocationListener, public Heard
{
public:
    void OnAASatinfoChange(const _GpsSatelliteData& data) override
    {
        std::string text = std::to_string(data.nCount) + " satellites";
        for (int i = 0; i < data.nCount; ++i) {
            text += " " + std::to_string(data.nNumber[i]) + ":" + std::to_string(data.nSignal[i]);
        }
        add(text);
    }
    void OnAALocationChange(const _LocationData& data) override
    {
        add(std::to_string(data.nLatitude) + " " + std::to_string(data.nLongitude));
    }
};

class LocationTest : public UnitSetup
{
protected:
    LocationTest()
    {
        config_.location = {"127.0.0.1", gpsd_.port()};
        start();
        KYR_GetLocationService()->AddListener(&positions_);
        EXPECT_EQ(gpsd_.accept(), "?WATCH={\"enable\":true,\"json\":true};\n");
        EXPECT_EQ(reasonOnce("location", State::kUp), "");
    }
    ~LocationTest() override { KYR_GetLocationService()->RemoveListener(&positions_); }

    Gpsd gpsd_;
    Positions positions_;
};

TEST_F(LocationTest, SatellitesAreTheirNumberAndSignal)
{
    gpsd_.say(
        "{\"class\":\"SKY\",\"satellites\":[{\"PRN\":4,\"ss\":46.4,\"used\":true},{\"PRN\":25},{\"PRN\":9,\"ss\":999}]}"
        "\r\n");

    EXPECT_THAT(positions_.waitFor(1), ElementsAre("3 satellites 4:46 25:0 9:255"));
}

TEST_F(LocationTest, OfManySatellitesTwentyAreTold)
{
    std::string all;
    for (int i = 0; i < 25; ++i) {
        all += (i == 0 ? "" : ",") + std::string("{\"PRN\":1}");
    }
    gpsd_.say("{\"class\":\"SKY\",\"satellites\":[" + all + "]}\n");

    EXPECT_THAT(positions_.waitFor(1), ElementsAre(testing::StartsWith("20 satellites ")));
}

TEST_F(LocationTest, FixThatIsFoundAndLostIsTold)
{
    gpsd_.say("{\"class\":\"TPV\",\"mode\":1}\n");
    gpsd_.say("{\"class\":\"TPV\",\"mode\":3,\"lat\":48.11730001,\"lon\":-11.5");
    gpsd_.say("166667}\n{\"class\":\"TPV\",\"mode\":1}\n{\"class\":\"TPV\",\"mode\":1}\n");
    gpsd_.say("{\"class\":\"TPV\",\"mode\":2,\"lat\":1,\"lon\":999}\n");

    EXPECT_THAT(positions_.waitFor(3), ElementsAre("481173000 -115166667", "0 0", "10000000 0"));
}

TEST_F(LocationTest, LinesThatAreNoReportsArePassedOver)
{
    gpsd_.say("\n{\"class\":7}\nnonsense\n[1]\n{\"class\":\"SKY\",\"satellites\":7}\n{\"class\":\"SKY\"}\n");
    gpsd_.say(
        "{\"class\":\"TPV\",\"mode\":\"three\",\"lat\":1}\n{\"class\":\"SKY\",\"satellites\":[7,{\"PRN\":3,\"ss\":9}]}"
        "\n");

    EXPECT_THAT(positions_.waitFor(1), ElementsAre("1 satellites 3:9"));
}

TEST_F(LocationTest, GpsdThatGoesAndComesBackIsFollowed)
{
    gpsd_.hangUp();
    EXPECT_THAT(reasonOnce("location", State::kAbsent), HasSubstr(": gpsd has closed the connection"));

    EXPECT_EQ(gpsd_.accept(), "?WATCH={\"enable\":true,\"json\":true};\n");
    gpsd_.say("{\"class\":\"TPV\",\"mode\":2,\"lat\":1,\"lon\":2}\n");
    EXPECT_THAT(positions_.waitFor(1), ElementsAre("10000000 20000000"));
}

TEST_F(LocationTest, LineWithoutEndIsRefused)
{
    gpsd_.say(std::string(70'000, 'x'));

    EXPECT_THAT(reasonOnce("location", State::kAbsent),
                HasSubstr("expected lines of at most 65536 bytes from gpsd, got a longer one"));
}

class LocationWithoutGpsdTest : public UnitSetup
{
};

TEST_F(LocationWithoutGpsdTest, IsThereAndSaysWhatIsMissing)
{
    config_.location = {"127.0.0.1", Gpsd().port()};
    start();

    EXPECT_TRUE(
        once([this] { return reasonOnce("location", State::kAbsent).find("refused") != std::string::npos; }, true));
    EXPECT_EQ(KYR_GetLocationService()->InitInstance(), 1);
}

}  // namespace
}  // namespace unit
