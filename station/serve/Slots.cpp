#include "station/serve/Slots.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <utility>

#include "protocol/Text.h"
#include "station/ClockText.h"
#include "station/Pattern.h"
#include "station/plan/Answers.h"
#include "station/ports/SerialPorts.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/trace/Describe.h"

namespace station::serve {

namespace {

/// Units that are remembered for the figures of the shift.
constexpr std::size_t kRemembered = 5000;
/// Units that a page lists.
constexpr std::size_t kListed = 10;
constexpr std::size_t kLongestScan = 256;

const char* kindOf(plan::Prompt::Kind kind)
{
    switch (kind) {
        case plan::Prompt::Kind::kYesNo:
            return "yes/no";
        case plan::Prompt::Kind::kText:
            return "text";
        case plan::Prompt::Kind::kNumber:
            return "number";
        case plan::Prompt::Kind::kChoice:
            return "choice";
    }
    return "";
}

}  // namespace

/// A slot and what goes on there.
struct Slots::Place {
    enum class State { kFree, kRunning, kEnded };

    struct Question {
        Question(std::string name, const plan::Question& of) : id(std::move(name)), asked(&of) {}

        const std::string id;
        const plan::Question* const asked;  ///< lives while the question is open
        std::optional<std::string> answer;
        host::Wakeup answered;
    };

    explicit Place(const Slot& of) : slot(of) {}

    const Slot slot;
    State state = State::kFree;
    std::string serial;
    std::string plan;
    bool isRetest = false;
    bool isEnding = false;  ///< the user has asked for the end
    std::string step;
    std::size_t steps = 0;
    std::size_t total = 0;
    Json result;  ///< the event of the end; null for none
    std::optional<Question> question;
    plan::PlanRuns* runs = nullptr;
    std::thread thread;
};

/// Puts the questions of a run beside its slot.
class Slots::Asker : public plan::Prompter
{
public:
    Asker(Slots& slots, Place& place) : slots_(slots), place_(place) {}

    std::optional<std::string> ask(const plan::Question& question, Interrupt& interrupt) override
    {
        std::array<pollfd, 2> wanted{{{-1, POLLIN, 0}, {interrupt.descriptor(), POLLIN, 0}}};
        {
            const std::lock_guard lock(slots_.mutex_);
            place_.question.emplace(fmt::format("{}-{}", place_.slot.name, ++slots_.questions_), question);
            wanted[0].fd = place_.question->answered.descriptor();
            slots_.publishLocked(place_);
        }
        const auto deadline = std::chrono::steady_clock::now() + question.timeout;
        bool isOver = false;
        while (!isOver && (wanted[0].revents & POLLIN) == 0 && !interrupt.requested()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            isOver = question.timeout.count() > 0 && left.count() <= 0;
            const auto most = std::clamp<std::int64_t>(left.count(), 0, 3'600'000);
            poll(wanted.data(), wanted.size(), question.timeout.count() > 0 ? static_cast<int>(most) : -1);
        }
        const std::lock_guard lock(slots_.mutex_);
        const auto answer = place_.question->answer;
        place_.question.reset();
        slots_.publishLocked(place_);
        if (!answer && interrupt.requested()) {
            throw Interrupted();
        }
        return answer;
    }

private:
    Slots& slots_;
    Place& place_;
};

/// Tells the browsers how far a run has come.
class Slots::Watcher : public plan::Observer
{
public:
    Watcher(Slots& slots, Place& place) : slots_(slots), place_(place) {}

    void onStarted(record::Run& run) override { publish(record::startedEvent(run)); }

    void onAttempt(const record::StepPlace& at, const plan::Step& step, std::size_t) override
    {
        const std::lock_guard lock(slots_.mutex_);
        place_.step = step.name;
        place_.steps = at.index;
        place_.total = at.total;
        slots_.publishLocked(place_);
    }

    void onFrame(const TraceEvent& event) override
    {
        if (!hasFrame(event.kind)) {
            publish({{"event", station::name(event.kind)}, {"port", place_.slot.port}, {"text", event.text}});
        }
    }

    void onStepEnded(const record::StepPlace& at, const record::Step& step) override
    {
        publish(record::stepEvent("step", place_.slot.port, at, step));
    }

    void onStepAmended(const record::StepPlace& at, const record::Step& step) override
    {
        publish(record::stepEvent("amended", place_.slot.port, at, step));
    }

private:
    void publish(Json event)
    {
        event["slot"] = place_.slot.name;
        slots_.settings_.publish(event.at("event").get<std::string>(), event);
    }

    Slots& slots_;
    Place& place_;
};

Slots::Slots(SlotsSettings settings, const plan::Surroundings& surroundings)
    : settings_(std::move(settings)), surroundings_(surroundings)
{
    for (const Slot& slot : settings_.slots) {
        places_.emplace_back(slot);
    }
}

Slots::~Slots()
{
    for (Place& place : places_) {
        {
            const std::lock_guard lock(mutex_);
            place.isEnding = true;
            if (place.runs != nullptr) {
                place.runs->requestEnd();
            }
        }
        if (place.thread.joinable()) {
            place.thread.join();
        }
    }
}

Slots::Place& Slots::placeLocked(const std::string& slot)
{
    const auto found = std::ranges::find(places_, slot, [](const Place& place) { return place.slot.name; });
    if (found == places_.end()) {
        throw Refused(404, fmt::format("expected a slot of the station, got {}", protocol::inQuotes(slot)));
    }
    return *found;
}

const Product& Slots::productOf(const std::string& serial) const
{
    const auto found = std::ranges::find_if(settings_.products, [&](const Product& product) {
        return product.pattern.empty() || matches(serial, product.pattern);
    });
    if (found == settings_.products.end()) {
        throw Refused(
            422, fmt::format("{} is not the serial number of a product of this station", protocol::inQuotes(serial)));
    }
    return *found;
}

Json Slots::scan(const std::string& text, const std::string& operatorName)
{
    if (text.empty() || text.size() > kLongestScan) {
        throw Refused(422, fmt::format("expected a scan of 1 to {} bytes, got {}", kLongestScan, text.size()));
    }
    const std::lock_guard lock(mutex_);
    std::vector<Place*> asking;
    for (Place& place : places_) {
        if (place.question && !place.question->answer && !place.question->asked->prompt.mask.empty() &&
            matches(text, place.question->asked->prompt.mask)) {
            asking.push_back(&place);
        }
    }
    if (asking.size() > 1) {
        Json ids = Json::array();
        for (const Place* place : asking) {
            ids.push_back(place->question->id);
        }
        return {{"choose", std::move(ids)}};
    }
    if (asking.size() == 1) {
        const std::string id = asking.front()->question->id;
        answerLocked(*asking.front(), text);
        return {{"answered", id}};
    }
    for (const Place& place : places_) {
        if (!place.slot.barcode.empty() && place.slot.barcode == text) {
            selected_ = place.slot.name;
            settings_.publish("selected", {{"event", "selected"}, {"slot", selected_}});
            return {{"selected", selected_}};
        }
    }
    productOf(text);
    Place* free = selected_.empty() ? nullptr : &placeLocked(selected_);
    if (free == nullptr || free->state == Place::State::kRunning) {
        const auto found =
            std::ranges::find_if(places_, [](const Place& place) { return place.state != Place::State::kRunning; });
        free = found == places_.end() ? nullptr : &*found;
    }
    if (free == nullptr) {
        throw Refused(409, "every slot is busy");
    }
    startLocked(*free, text, operatorName);
    return {{"started", free->slot.name}};
}

void Slots::start(const std::string& slot, const std::string& serial, const std::string& operatorName)
{
    const std::lock_guard lock(mutex_);
    startLocked(placeLocked(slot), serial, operatorName);
}

void Slots::startLocked(Place& place, const std::string& serial, const std::string& operatorName)
{
    const Product& product = productOf(serial);
    if (place.state == Place::State::kRunning) {
        throw Refused(409, fmt::format("slot {} tests {}", place.slot.name, protocol::inQuotes(place.serial)));
    }
    for (const Place& other : places_) {
        if (other.state == Place::State::kRunning && other.serial == serial) {
            throw Refused(409, fmt::format("slot {} tests {} already", other.slot.name, protocol::inQuotes(serial)));
        }
    }
    if (place.thread.joinable()) {
        place.thread.join();  // it has ended: the state says so
    }
    place.state = Place::State::kRunning;
    place.serial = serial;
    place.plan = product.plan;
    place.isRetest = std::ranges::find(tested_, serial, &Tested::serial) != tested_.end();
    place.isEnding = false;
    place.step.clear();
    place.steps = place.total = 0;
    place.result = nullptr;
    selected_.clear();
    place.thread =
        std::thread([this, &place, &product, serial, operatorName] { work(place, product, serial, operatorName); });
    publishLocked(place);
}

void Slots::work(Place& place, const Product& product, const std::string& serial, const std::string& operatorName)
{
    try {
        runPlan(place, product, serial, operatorName);
    } catch (const std::exception& error) {
        // Nothing was run, so there is no record.
        const std::lock_guard lock(mutex_);
        place.state = Place::State::kEnded;
        place.result = {{"verdict", "ERROR"}, {"reason", protocol::printable(error.what())}, {"folder", ""}};
        publishLocked(place);
    }
}

void Slots::runPlan(Place& place, const Product& product, const std::string& serial, const std::string& operatorName)
{
    const plan::PlanFile file =
        plan::readPlan(settings_.findPlan(product.plan), surroundings_.groups, settings_.values, settings_.equipment);
    if (!file.loaded.plan) {
        throw std::runtime_error(format(file.path, file.loaded.problems.front()));
    }
    const auto destructive = file.loaded.plan->destructiveSteps();
    if (!destructive.empty() && !product.destructive) {
        throw std::runtime_error(
            fmt::format("{}:{}: expected 'destructive = true' of its [[product]], because {} cannot "
                        "be undone",
                        file.path, destructive.front()->line, protocol::inQuotes(destructive.front()->what)));
    }
    if (settings_.slots.size() > 1 && settings_.equipment.power && settings_.equipment.power->run.empty() &&
        plan::switchesPower(*file.loaded.plan)) {
        throw std::runtime_error("[power]: expected 'run' for several slots, since one instrument would switch all");
    }
    Asker asker(*this, place);
    Watcher watcher(*this, place);
    plan::Surroundings mine{surroundings_.groups, asker, surroundings_.headUnit, surroundings_.serialRecord};
    mine.instruments = surroundings_.instruments;
    plan::RunRequest request;
    request.ports = {parsePort(place.slot.port)};
    request.results = settings_.results;
    request.known.unit.serial = serial;
    request.known.station = settings_.station;
    request.known.station.operatorName = operatorName;
    request.known.plan.sha256 = file.sha256;
    request.known.catalogueSha256 = settings_.catalogueSha256;
    plan::PlanRuns runs(*file.loaded.plan, request, mine,
                        [&](const std::string&) -> plan::Observer& { return watcher; });
    {
        const std::lock_guard lock(mutex_);
        place.runs = &runs;
        if (place.isEnding) {
            runs.requestEnd();
        }
    }
    pollfd over{runs.over().descriptor(), POLLIN, 0};
    while (runs.running()) {
        poll(&over, 1, -1);
    }
    const plan::Conclusion conclusion = runs.conclude();
    const std::lock_guard lock(mutex_);
    place.runs = nullptr;
    endLocked(place, conclusion);
}

void Slots::endLocked(Place& place, const plan::Conclusion& conclusion)
{
    place.state = Place::State::kEnded;
    place.isEnding = false;
    if (conclusion.units.empty()) {
        const std::string why = conclusion.complaints.empty() ? "" : conclusion.complaints.front();
        place.result = {{"verdict", plan::kNotRecordedText}, {"reason", why}, {"folder", ""}};
    } else {
        const plan::UnitResult& unit = conclusion.units.front();
        place.result = record::endedEvent(unit.result.run);
        place.result["verdict"] = plan::headlineText(unit);
        place.result["reason"] = protocol::printable(
            unit.recordError.empty() ? record::headlineOf(unit.result.run).reason : unit.recordError);
        place.result["remedy"] = protocol::printable(unit.result.remedy);
        place.result["folder"] = unit.folder;
        place.result["time"] = isoUtc(unit.result.run.ended, 3);
        tested_.push_back({place.serial, place.slot.name, place.plan, plan::headlineText(unit), unit.result.run.ended,
                           place.isRetest});
        if (tested_.size() > kRemembered) {
            tested_.pop_front();
        }
    }
    publishLocked(place);
    settings_.publish("shift", shiftLocked());
}

void Slots::abort(const std::string& slot)
{
    const std::lock_guard lock(mutex_);
    Place& place = placeLocked(slot);
    if (place.state != Place::State::kRunning) {
        throw Refused(409, fmt::format("slot {} tests no unit", place.slot.name));
    }
    place.isEnding = true;
    if (place.runs != nullptr) {
        place.runs->requestEnd();
    }
    publishLocked(place);
}

void Slots::answer(const std::string& question, const std::string& answer)
{
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(places_, [&](const Place& place) {
        return place.question && place.question->id == question && !place.question->answer;
    });
    if (found == places_.end()) {
        throw Refused(409, "the question has been answered, or is over");
    }
    answerLocked(*found, answer);
}

void Slots::answerLocked(Place& place, const std::string& text)
{
    const plan::Question& question = *place.question->asked;
    const auto answer = plan::parseAnswer(question.prompt, text);
    std::string complaint;
    if (!answer) {
        complaint = fmt::format("expected {}, got {}", describe(question.prompt),
                                question.prompt.secret ? "another answer" : protocol::inQuotes(text));
    } else if (question.mistyped) {
        complaint = question.mistyped(*answer);
    }
    if (!complaint.empty()) {
        throw Refused(422, complaint);
    }
    place.question->answer = answer;
    place.question->answered.signal();
}

std::string Slots::image(const std::string& question) const
{
    const std::lock_guard lock(mutex_);
    for (const Place& place : places_) {
        if (place.question && place.question->id == question && !place.question->asked->prompt.image.empty()) {
            return place.question->asked->prompt.image;
        }
    }
    throw Refused(404, "expected an open question with a picture");
}

Json Slots::jsonLocked(const Place& place) const
{
    constexpr std::array kStates{"free", "running", "ended"};
    struct stat port {
    };
    Json json{{"event", "slot"},
              {"slot", place.slot.name},
              {"port", place.slot.port},
              {"present", stat(parsePort(place.slot.port).path.c_str(), &port) == 0},
              {"state", kStates[static_cast<std::size_t>(place.state)]},
              {"serial", place.serial},
              {"plan", place.plan},
              {"retest", place.isRetest},
              {"ending", place.isEnding},
              {"step", place.step},
              {"done", place.steps},
              {"total", place.total},
              {"question", nullptr},
              {"result", place.result}};
    if (place.question && !place.question->answer) {
        const plan::Prompt& prompt = place.question->asked->prompt;
        json["question"] = {{"id", place.question->id},
                            {"text", prompt.text},
                            {"kind", kindOf(prompt.kind)},
                            {"choices", prompt.choices},
                            {"image", !prompt.image.empty()},
                            {"mask", prompt.mask},
                            {"secret", prompt.secret},
                            {"timeout", std::chrono::duration<double>(place.question->asked->timeout).count()}};
    }
    return json;
}

void Slots::publishLocked(const Place& place) const
{
    settings_.publish("slot", jsonLocked(place));
}

Json Slots::shiftLocked() const
{
    std::size_t units = 0;
    std::size_t retests = 0;
    std::size_t passed = 0;
    for (const Tested& each : tested_) {
        // As in the statistics of many runs.
        const bool counts = each.verdict != record::name(record::Verdict::kAborted) &&
                            each.verdict != record::name(record::Verdict::kSkipped);
        units += counts && !each.isRetest ? 1 : 0;
        retests += counts && each.isRetest ? 1 : 0;
        passed += !each.isRetest && each.verdict == record::name(record::Verdict::kPass) ? 1 : 0;
    }
    Json last = Json::array();
    for (auto each = tested_.rbegin(); each != tested_.rend() && last.size() < kListed; ++each) {
        last.push_back({{"serial", each->serial},
                        {"slot", each->slot},
                        {"plan", each->plan},
                        {"verdict", each->verdict},
                        {"time", isoUtc(each->ended, 3)},
                        {"retest", each->isRetest}});
    }
    return {
        {"event", "shift"}, {"units", units}, {"retests", retests}, {"first_pass", passed}, {"last", std::move(last)}};
}

Json Slots::snapshot() const
{
    const std::lock_guard lock(mutex_);
    Json slots = Json::array();
    for (const Place& place : places_) {
        slots.push_back(jsonLocked(place));
    }
    return {{"station", settings_.station.host},
            {"line", settings_.station.line},
            {"selected", selected_},
            {"slots", std::move(slots)},
            {"shift", shiftLocked()}};
}

}  // namespace station::serve
