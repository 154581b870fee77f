#include "station/trace/Attribution.h"

#include <algorithm>

#include "protocol/catalogue/Catalogue.h"

namespace station {

namespace catalogue = protocol::catalogue;

bool isLater(const catalogue::Command& command, const protocol::Frame& frame)
{
    return std::ranges::any_of(command.later, [&](const catalogue::Reply& reply) {
        return reply.cmdOne == frame.cmdOne && reply.cmdTwo == frame.cmdTwo;
    });
}

Attribution::Meaning Attribution::on(const TraceEvent& event)
{
    if (event.kind == TraceEvent::Kind::kSent) {
        const auto* command = catalogue::findCommand(groups_, event.frame.cmdOne, event.frame.cmdTwo);
        requests_.push_back({++count_, event.frame, command, event.steady, due_});
        if (requests_.size() > kRemembered) {
            requests_.pop_front();
        }
        waiting_ = true;
        return {catalogue::decodeRequest(groups_, event.frame), std::nullopt};
    }
    if (event.kind != TraceEvent::Kind::kReceived) {
        return {};
    }
    Meaning meaning;
    const catalogue::Command* asked = nullptr;
    if (Request* const request = find(event)) {
        asked = request->command;
        meaning.request = *request;
        request->answered = true;
    }
    meaning.decoded = catalogue::decodeFromUnit(groups_, event.frame, asked);
    return meaning;
}

/// @returns the latest command that the frame answers; when that one has its answer, the latest before it that lacks
/// its own.
Attribution::Request* Attribution::find(const TraceEvent& event)
{
    const auto isOf = [&](const Request& each) { return answers(each, event); };
    const auto latest = std::find_if(requests_.rbegin(), requests_.rend(), isOf);
    if (latest == requests_.rend()) {
        return nullptr;
    }
    if (!latest->answered) {
        return &*latest;
    }
    const auto lacking = std::find_if(latest, requests_.rend(), [&](const Request& each) {
        return isOf(each) && !each.answered && each.due == Due::kReply;
    });
    return lacking == requests_.rend() ? &*latest : &*lacking;
}

bool Attribution::answers(const Request& request, const TraceEvent& event) const
{
    const bool last = request.number == count_;
    if (last && event.early) {
        return false;
    }
    if (request.command != nullptr && !request.command->replies.empty()) {
        return catalogue::answers(*request.command, event.frame);
    }
    if (request.due != Due::kSilence || !catalogue::answersUnknown(request.frame, event.frame)) {
        return false;
    }
    return (last && waiting_) || ((request.command == nullptr || !isLater(*request.command, event.frame)) &&
                                  catalogue::decodeFromUnit(groups_, event.frame).notice == nullptr);
}

}  // namespace station
