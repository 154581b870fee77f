#pragma once

#include <KYRTuner.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Loop.h"
#include "platform/linux/Radio.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// The tuner over V4L2. Frequencies are in units of 10 kHz on FM and of 1 kHz on BAND_0, which is AM; the other bands
/// are absent. The radio has a thread of its own, since its calls may sleep.
class Tuner : public KYRTuner
{
public:
    /// @param loop of the listeners; not owned; stopped before this object is destroyed
    /// @param startSound is called on the loop's thread when a frequency is played with its sound
    Tuner(UnitConfig::Tuner config, Loop& loop, StatusBoard& board, std::function<void()> startSound,
          std::unique_ptr<RadioDevice> device = std::make_unique<RadioDevice>());
    ~Tuner() override;

    int InitInstance() override { return 1; }

    // These wait up to 40 ms until the radio has done what was asked before.
    BandID GetCurrentBand() override;
    unsigned int GetFrequency(BandID eBand) override;

    // A new request ends a search. Requests are refused with a report while the radio is absent or lacks the band.
    void Play(BandID eBand, unsigned int nFrequency, unsigned int nService, int bAudible) override;
    void SwitchBandRequest(BandID eBand) override;
    void Seek(BandID eBand, int nDirection) override;
    void AutoStore() override;
    void Scan(BandID eBand) override;

    /// No effect: V4L2 does not follow alternative frequencies.
    void SwitchRdsAFSetting(unsigned char) override {}

    /// While this is on, announcements are told. Off at the start.
    void SwitchRdsTASetting(unsigned char ucOn) override;

private:
    /// A band as it can be tuned, in its units.
    struct Band {
        unsigned low = 0;
        unsigned high = 0;
        unsigned first = 0;  // position: a multiple of the step, perhaps shifted by what the file says
        unsigned step = 1;
        std::vector<unsigned> stations = {};

        int positions() const { return high < first ? 0 : static_cast<int>((high - first) / step) + 1; }
    };

    /// A turn through the positions of a band. A station is where the signal is at its peak and is strong enough.
    struct Search {
        enum class For { kSeek, kStore, kScan } purpose = For::kStore;
        BandID band = BAND_FM;
        int direction = 1;
        int origin = -1;        // position
        int step = 0;           // number of steps so far
        int plateau = 0;        // number of the step since which the signal is the present one
        int signal = -1;        // of the last step
        bool isRising = false;  // up to the plateau
        std::vector<unsigned> found = {};
    };

    void request(std::function<void()> action);

    // Of the radio's thread.
    template <class Action>
    void withRadio(Action action);
    void open();
    void readBands();
    void lost(const std::string& reason);
    void watch();
    void watchTraffic();
    void setTraffic(bool isOn);
    const Band* bandOrReport(BandID band, const char* what) const;
    void tuneTo(BandID band, unsigned frequency);
    void tellFrequency();
    unsigned frequencyAt(const Search& search, int step) const;
    void nextStep();
    void judge(int signal);
    void endSearch();
    void playStation(BandID band, std::size_t station, unsigned back);

    const UnitConfig::Tuner config_;
    Loop& loop_;
    StatusBoard& board_;
    const std::function<void()> startSound_;
    const std::unique_ptr<RadioDevice> device_;

    std::mutex mutex_;
    std::condition_variable done_;
    int pending_ = 0;  // requests under way; guarded by mutex_
    // Written by the radio's thread, which reads them without the mutex; guarded by mutex_ otherwise.
    BandID band_ = BAND_FM;
    std::map<BandID, unsigned> frequency_;

    Loop thread_;
    // Of the radio's thread.
    std::optional<Radio> radio_;
    std::map<BandID, Band> bands_;
    std::optional<Search> search_;
    bool wantsTraffic_ = false;
    bool isTraffic_ = false;
    std::chrono::steady_clock::time_point heardTraffic_;
    host::GlibPtr<GSource> timer_;  // of a search or a scan; without a radio, until it is looked for again
    host::GlibPtr<GSource> watch_;
};

}  // namespace unit
