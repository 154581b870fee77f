#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "station/config/StationConfig.h"
#include "station/plan/Load.h"
#include "station/plan/PlanRuns.h"

/// The station as operators see it: units are scanned, tested and judged at its slots.
namespace station::serve {

using Json = nlohmann::ordered_json;

/// What a user asks for cannot be done; `status` is HTTP's.
class Refused : public std::runtime_error
{
public:
    Refused(unsigned status, const std::string& why) : std::runtime_error(why), status_(status) {}

    unsigned status() const { return status_; }

private:
    unsigned status_;
};

struct SlotsSettings {
    std::vector<Slot> slots;
    std::vector<Product> products;
    plan::ParameterValues values;
    instrument::Equipment equipment;
    std::string results;
    record::Run::StationInfo station;
    std::string catalogueSha256;
    /// @returns the path of a plan. Throws protocol::UserError.
    std::function<std::string(const std::string& plan)> findPlan;
    /// Tells the browsers; any thread.
    std::function<void(const std::string& type, const Json& data)> publish;
};

/// The slots and the runs at them. All functions may be called from any thread, and return at once.
class Slots
{
public:
    /// @param surroundings its prompter and its serials are not used
    Slots(SlotsSettings settings, const plan::Surroundings& surroundings);
    /// Ends the runs, with their teardown, and waits for them.
    ~Slots();
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;

    /// @returns everything that a page shows.
    Json snapshot() const;

    /// A scanned text answers the one open question whose mask it matches; else it is a slot's barcode, which selects
    /// the slot for the next unit; else the serial number of a unit for the selected slot, or the first that is free.
    /// @returns what came of it: {"answered": QUESTION}, {"selected": SLOT}, {"started": SLOT}, or {"choose":
    /// [QUESTION…]} if several questions take it. Throws Refused.
    Json scan(const std::string& text, const std::string& operatorName);

    /// Tests a unit. Throws Refused.
    void start(const std::string& slot, const std::string& serial, const std::string& operatorName);

    /// Ends the run at a slot, with its teardown. Throws Refused if there is none.
    void abort(const std::string& slot);

    /// Answers an open question. Throws Refused: 409 if it has been answered, 422 if the answer does not fit.
    void answer(const std::string& question, const std::string& answer);

    /// @returns the path of the picture of an open question. Throws Refused.
    std::string image(const std::string& question) const;

private:
    struct Place;
    class Asker;
    class Watcher;

    Place& placeLocked(const std::string& slot);
    const Product& productOf(const std::string& serial) const;
    void startLocked(Place& place, const std::string& serial, const std::string& operatorName);
    void answerLocked(Place& place, const std::string& text);
    void work(Place& place, const Product& product, const std::string& serial, const std::string& operatorName);
    void runPlan(Place& place, const Product& product, const std::string& serial, const std::string& operatorName);
    void endLocked(Place& place, const plan::Conclusion& conclusion);
    void publishLocked(const Place& place) const;
    Json jsonLocked(const Place& place) const;
    Json shiftLocked() const;

    /// A unit that has been tested.
    struct Tested {
        std::string serial;
        std::string slot;
        std::string plan;
        std::string verdict;
        std::chrono::system_clock::time_point ended;
        bool isRetest = false;
    };

    const SlotsSettings settings_;
    const plan::Surroundings& surroundings_;
    mutable std::mutex mutex_;
    std::list<Place> places_;      // the list itself never changes; its elements are guarded by mutex_
    std::string selected_;         // guarded by mutex_
    std::uint64_t questions_ = 0;  // guarded by mutex_
    std::deque<Tested> tested_;    // the newest last; guarded by mutex_
};

}  // namespace station::serve
