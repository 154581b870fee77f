#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "protocol/Quantity.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/plan/Judge.h"
#include "station/plan/LoadContext.h"
#include "station/plan/Variables.h"

namespace station::plan::loading {

namespace catalogue = protocol::catalogue;
using catalogue::Command;
using catalogue::Field;
using protocol::toml_file::TableReader;

namespace {

/// The attempts of a step are one line of the record.
constexpr std::int64_t kMostAttempts = 10'001;

/// How long a step listens that asserts silence: it always takes the whole time, so less than for an answer.
constexpr auto kSilence = std::chrono::milliseconds(200);

constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr auto kPollPatience = std::chrono::seconds(10);

std::vector<const Field*> fieldsOf(std::span<const catalogue::Reply> replies)
{
    std::vector<const Field*> list;
    for (const auto& reply : replies) {
        for (const Field& field : reply.fields) {
            if (std::ranges::find(list, field.name, &Field::name) == list.end()) {
                list.push_back(&field);
            }
        }
    }
    return list;
}

std::string shown(const std::string& value)
{
    const bool plain = !value.empty() && value.find_first_of(" \t\"'") == std::string::npos;
    return plain ? value : fmt::format("\"{}\"", value);
}

std::string noSuchNotice(catalogue::Groups groups, std::string_view key)
{
    std::vector<std::string> keys;
    for (const auto& group : groups) {
        for (const auto& notice : group.notices) {
            keys.push_back(fmt::format("{}.{}", group.key, notice.key));
        }
        for (const auto& command : group.commands) {
            if (!command.later.empty()) {
                keys.push_back(fmt::format("{}.{}", group.key, command.key));
            }
        }
    }
    const std::vector<std::string_view> words(keys.begin(), keys.end());
    const std::string hint = protocol::didYouMean(key, words);
    return fmt::format("expected a notice or a command with a later reply, got {}{}", inQuotes(key),
                       hint.empty() ? fmt::format("; these are {}", fmt::join(keys, ", ")) : hint);
}

using Json = nlohmann::ordered_json;

struct NoJson {
};

Json convert(const toml::node& node)
{
    if (const auto* table = node.as_table()) {
        Json object = Json::object();
        for (const auto& [key, value] : *table) {
            object[std::string(key.str())] = convert(value);
        }
        return object;
    }
    if (const auto* array = node.as_array()) {
        Json list = Json::array();
        for (const auto& value : *array) {
            list.push_back(convert(value));
        }
        return list;
    }
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    if (const auto* integer = node.as_integer()) {
        return integer->get();
    }
    if (const auto* number = node.as_floating_point()) {
        return number->get();
    }
    if (const auto* flag = node.as_boolean()) {
        return flag->get();
    }
    throw NoJson();
}

}  // namespace

std::optional<std::string> jsonText(const toml::node& node)
{
    try {
        return convert(node).dump(-1, ' ', false, Json::error_handler_t::replace);
    } catch (const NoJson&) {
        return std::nullopt;
    }
}

namespace {

/// Reads one step; a member function per kind.
class StepLoader
{
public:
    StepLoader(Context& context, const toml::table& table)
        : context_(context), table_(table), reader_(table, "step", context.problems)
    {
    }

    Step load()
    {
        step_.line = table_.source().begin.line;
        step_.timeout = context_.timeout;
        loadAction();
        loadCommon();
        reader_.finish();
        return std::move(step_);
    }

private:
    void problem(const toml::node& node, std::string text)
    {
        protocol::toml_file::report(context_.problems, node, std::move(text));
    }

    void loadAction()
    {
        constexpr std::array<std::string_view, 7> kKinds{"send", "wait", "prompt", "headunit", "pause", "run", "power"};
        std::vector<std::string_view> found;
        std::ranges::copy_if(kKinds, std::back_inserter(found),
                             [&](std::string_view kind) { return reader_.node(kind) != nullptr; });
        const std::size_t before = context_.problems.size();
        const std::string instrument = instrumentIn(context_, table_, reader_, found.empty());
        if (!instrument.empty()) {
            found.push_back(instrument);
        }
        if (context_.problems.size() != before) {
            acceptAll();
            return;
        }
        if (found.size() != 1) {
            problem(table_, found.empty()
                                ? "expected 'send', 'wait', 'prompt', 'headunit', 'pause', 'run', 'power' or an "
                                  "instrument in the step, got none"
                                : fmt::format("expected one action in the step, got {} and {}: make two steps",
                                              inQuotes(found[0]), inQuotes(found[1])));
            acceptAll();
            return;
        }
        if (found[0] == "send") {
            loadSend();
        } else if (found[0] == "wait") {
            loadWait();
        } else if (found[0] == "prompt") {
            loadPrompt();
        } else if (found[0] == "pause") {
            loadPause();
        } else if (found[0] == "run") {
            loadRun(context_, reader_, step_);
        } else if (found[0] == "power") {
            loadPower(reader_, step_);
        } else if (!instrument.empty()) {
            loadInstrument(context_, reader_, instrument, step_);
        } else {
            loadHeadUnit();
        }
    }

    /// Accepts every key of a step whose kind is unknown.
    void acceptAll()
    {
        for (const char* key : {"with", "reply", "expect", "expect_later", "poll", "max_time", "store", "keep", "id",
                                "answer", "image", "mask"}) {
            reader_.node(key);
        }
    }

    void loadSend()
    {
        Send send;
        const std::string key = reader_.text("send", true);
        step_.name = key;
        step_.what = key;
        send.command = catalogue::findCommand(context_.groups, key);
        if (send.command == nullptr) {
            if (!key.empty()) {
                reader_.report("send", catalogue::noSuchCommand(context_.groups, key));
            }
            acceptAll();
            step_.action = std::move(send);
            return;
        }
        loadWith(send);
        loadReply(send);
        loadLater(send);
        loadPoll(send);
        send.store = loadStore(
            fieldsOf(send.command->replies.empty() || send.later ? send.command->later : send.command->replies), key);
        if (send.command->destructive) {
            const auto place = reader_.node("send")->source().begin;
            context_.warnings.push_back(
                {place.line, place.column, fmt::format("{} cannot be undone: run the plan with --yes", inQuotes(key))});
        }
        step_.action = std::move(send);
    }

    void loadWith(Send& send)
    {
        const auto& params = send.command->params;
        const std::size_t before = context_.problems.size();
        const toml::table* with = reader_.table("with");
        bool variable = false;
        if (with != nullptr) {
            for (const auto& [key, node] : *with) {
                variable |= loadArgument(send, key, node);
            }
        }
        for (const Field& param : params) {
            const bool given = with != nullptr && with->contains(param.name);
            if (!given && !param.optional && context_.problems.size() == before) {
                problem(with != nullptr ? static_cast<const toml::node&>(*with) : *reader_.node("send"),
                        fmt::format("{}: expected the parameter {}, as in with = {{ {} = {} }}, got none",
                                    inQuotes(step_.name), inQuotes(param.name), param.name, param.example));
            }
        }
        if (context_.problems.size() == before && !variable) {
            checkWhole(send);
        }
        // In the order of the parameters, whatever the file's.
        std::ranges::sort(send.with, {}, [&](const auto& argument) {
            return std::ranges::find(params, argument.first, &Field::name) - params.begin();
        });
        for (const auto& [name, value] : send.with) {
            const Field& param = *std::ranges::find(params, name, &Field::name);
            step_.what += fmt::format(" {}={}", name, shown(shownValue(*with->get(name), value, &param)));
        }
    }

    /// @returns whether the value is known at run time only.
    bool loadArgument(Send& send, const toml::key& key, const toml::node& node)
    {
        const auto& params = send.command->params;
        const auto param = std::ranges::find(params, key.str(), &Field::name);
        if (param == params.end()) {
            std::vector<std::string_view> names;
            std::ranges::transform(params, std::back_inserter(names), &Field::name);
            const std::string suggestion = protocol::didYouMean(key.str(), names);
            report(context_, key,
                   fmt::format("unknown parameter {} of {}{}", inQuotes(key.str()), inQuotes(step_.name),
                               params.empty()       ? ", which takes none"
                               : suggestion.empty() ? fmt::format(", which takes {}", fmt::join(names, ", "))
                                                    : suggestion));
            return false;
        }
        const auto text = writtenValue(context_, node, key.str(), &*param);
        if (!text) {
            return false;
        }
        send.with.emplace_back(key.str(), *text);
        if (!variablesIn(*text).empty()) {
            return true;
        }
        try {
            literal(*param, *text);
        } catch (const protocol::UserError& error) {
            problem(node, error.what());
        }
        return false;
    }

    void checkWhole(const Send& send)
    {
        try {
            catalogue::encode(*send.command, send.with);
        } catch (const protocol::UserError& error) {
            const toml::node* with = reader_.node("with");
            problem(with != nullptr ? *with : *reader_.node("send"), error.what());
        }
    }

    void loadReply(Send& send)
    {
        constexpr auto kRules = std::to_array({ReplyRule::kRequired, ReplyRule::kOptional, ReplyRule::kNone});
        const auto rule = reader_.oneOf("reply", {"required", "optional", "none"});
        send.reply = rule ? kRules[*rule] : ReplyRule::kRequired;
        const toml::table* expect = reader_.table("expect");
        if (send.reply == ReplyRule::kNone) {
            step_.timeout = std::min<Duration>(kSilence, context_.timeout);
            step_.what += ", no reply";
        } else if (send.command->replies.empty() && rule) {
            reader_.report("reply", fmt::format("{} has no reply{}", inQuotes(step_.name), readBackHint(send)));
        }
        if (expect == nullptr) {
            return;
        }
        if (send.reply == ReplyRule::kNone) {
            reader_.report("expect", "expected either reply = \"none\" or 'expect', got both");
        } else if (send.command->replies.empty()) {
            reader_.report("expect", fmt::format("{} has no reply{}", inQuotes(step_.name), readBackHint(send)));
        } else {
            send.expect = loadExpected(context_, *expect, fieldsOf(send.command->replies),
                                       "the reply to " + inQuotes(step_.name));
        }
    }

    static std::string readBackHint(const Send& send)
    {
        if (!send.command->later.empty()) {
            return ", only a later one: use expect_later";
        }
        return send.command->readBack.empty() ? ""
                                              : fmt::format(": read back with {}", inQuotes(send.command->readBack));
    }

    void loadLater(Send& send)
    {
        const toml::table* expect = reader_.table("expect_later");
        if (expect == nullptr) {
            return;
        }
        if (send.command->later.empty()) {
            reader_.report("expect_later", fmt::format("{} has no later reply: use expect", inQuotes(step_.name)));
            return;
        }
        send.later = true;
        send.expectLater = loadExpected(context_, *expect, fieldsOf(send.command->later),
                                        "the later reply to " + inQuotes(step_.name));
    }

    void loadPoll(Send& send)
    {
        const bool answers = !send.command->replies.empty() && send.reply == ReplyRule::kRequired;
        if (reader_.node("max_time") != nullptr) {
            send.maxTime = seconds(reader_, "max_time", Duration(0), 1e-6);
            if (!answers) {
                reader_.report("max_time", fmt::format("'max_time': expected a step that requires a reply, got {}",
                                                       inQuotes(step_.name)));
            }
        }
        const toml::table* table = reader_.table("poll");
        if (table == nullptr) {
            return;
        }
        if (!answers || send.later || !send.command->repeatable) {
            reader_.report("poll", fmt::format("'poll': expected a command that reads, got {}", inQuotes(step_.name)));
        }
        TableReader reader(*table, "poll", context_.problems);
        Poll poll;
        if (const toml::table* until = reader.table("until")) {
            poll.until =
                loadExpected(context_, *until, fieldsOf(send.command->replies), "the reply to " + inQuotes(step_.name));
        } else if (reader.node("until") == nullptr) {
            problem(*table, "expected until = { FIELD = … } in 'poll', got none");
        }
        for (const Expected& each : poll.until) {
            if (std::ranges::find(send.expect, each.name, &Expected::name) != send.expect.end()) {
                problem(*table, fmt::format("expected {} either in 'until' or in 'expect', got it in both",
                                            inQuotes(each.name)));
            }
        }
        poll.every = seconds(reader, "every", kPollInterval);
        poll.patience = seconds(reader, "for", kPollPatience, 0.001);
        reader.finish();
        send.poll = std::move(poll);
    }

    void loadPause()
    {
        step_.timeout = seconds(reader_, "pause", Duration(0));
        step_.what = protocol::secondsText(step_.timeout);
        step_.name = "pause " + step_.what;
        if (reader_.node("timeout") != nullptr) {
            reader_.report("timeout", "expected either 'pause' or 'timeout', got both");
        }
        step_.action = Pause();
    }

    void loadWait()
    {
        Wait wait;
        wait.key = reader_.text("wait", true);
        step_.name = wait.key;
        step_.what = wait.key;
        std::vector<const Field*> fields;
        wait.notice = catalogue::findNotice(context_.groups, wait.key);
        if (wait.notice != nullptr) {
            std::ranges::transform(wait.notice->fields, std::back_inserter(fields), [](const Field& f) { return &f; });
        } else {
            const Command* command = catalogue::findCommand(context_.groups, wait.key);
            if (command == nullptr || command->later.empty()) {
                reader_.report("wait", noSuchNotice(context_.groups, wait.key));
                acceptAll();
                step_.action = std::move(wait);
                return;
            }
            wait.command = command;
            fields = fieldsOf(command->later);
        }
        if (const auto* expect = reader_.table("expect")) {
            wait.expect = loadExpected(context_, *expect, fields, inQuotes(wait.key));
        }
        wait.store = loadStore(fields, wait.key);
        step_.action = std::move(wait);
    }

    void loadPrompt()
    {
        Prompt prompt;
        prompt.text = reader_.text("prompt", true);
        prompt.id = reader_.text("id", true);
        step_.name = prompt.id;
        step_.what = prompt.text;
        step_.timeout = Duration(0);
        if (!prompt.id.empty() && !isVariableName(prompt.id)) {
            reader_.report("id",
                           fmt::format("'id': expected letters, digits, '-' and '_', got {}", inQuotes(prompt.id)));
        } else if (!prompt.id.empty() && !context_.questions.insert(prompt.id).second) {
            reader_.report(
                "id", fmt::format("'id': expected another id for each question, got {} twice", inQuotes(prompt.id)));
        }
        loadAnswerKind(prompt);
        if (const auto image = reader_.optionalText("image")) {
            useFile(context_, *reader_.node("image"), *image);
            prompt.image = (std::filesystem::path(context_.path).parent_path() / *image).string();
        }
        if (const auto mask = reader_.optionalText("mask")) {
            prompt.mask = *mask;
            checkPattern(context_, *reader_.node("mask"), *mask);
            if (prompt.kind != Prompt::Kind::kText) {
                reader_.report("mask", "'mask': expected a question with answer = \"text\", got another");
            }
        }
        if (const auto* expect = reader_.node("expect")) {
            prompt.expect = loadAnswer(context_, *expect, prompt);
        } else if (prompt.kind == Prompt::Kind::kYesNo) {
            prompt.expect = Expected{};
            prompt.expect->name = prompt.id;
            prompt.expect->equals = "yes";
        }
        if (const auto name = reader_.optionalText("store")) {
            addVariable(*reader_.node("store"), *name,
                        {nullptr, prompt.kind == Prompt::Kind::kNumber, prompt.choices,
                         prompt.expect ? prompt.expect->unit : std::string()});
            prompt.store = *name;
        }
        prompt.keep = loadKeep(reader_);
        prompt.unique = reader_.boolean("unique", false);
        step_.action = std::move(prompt);
    }

    void loadAnswerKind(Prompt& prompt)
    {
        const toml::node* const node = reader_.node("answer");
        if (node == nullptr || !node->is_array()) {
            prompt.kind = static_cast<Prompt::Kind>(reader_.oneOf("answer", {"yes-no", "text", "number"}).value_or(0));
            return;
        }
        prompt.kind = Prompt::Kind::kChoice;
        for (const toml::node& each : *node->as_array()) {
            const auto text = each.value<std::string>();
            if (!each.is_string() || text->empty() ||
                std::ranges::find(prompt.choices, *text) != prompt.choices.end()) {
                problem(each, "'answer': expected a list of different texts, got another value or one twice");
            } else {
                prompt.choices.push_back(*text);
            }
        }
        if (node->as_array()->size() < 2) {
            problem(*node, fmt::format("'answer': expected at least two choices, got {}", node->as_array()->size()));
        }
    }

    void loadHeadUnit()
    {
        HeadUnitAction action;
        if (const toml::table* table = reader_.table("headunit")) {
            TableReader reader(*table, "headunit step", context_.problems);
            const bool sets = reader.node("set") != nullptr;
            const bool raises = reader.node("event") != nullptr;
            if (sets == raises) {
                problem(*table, "expected set = \"/PATH\" with a value, or event = \"NAME\"");
            }
            action.raisesEvent = raises;
            action.target = reader.text(sets ? "set" : "event", sets || raises);
            if (sets && !action.target.empty() && !action.target.starts_with('/')) {
                reader.report("set", fmt::format("'set': expected a path such as '/audio/volume', got {}",
                                                 inQuotes(action.target)));
            }
            if (sets != raises) {
                loadJson(reader, *table, action);
            }
            reader.finish();
        }
        step_.name = action.target;
        step_.what = fmt::format("{} {} {}", action.raisesEvent ? "event" : "set", action.target, action.json);
        step_.needsHeadUnit = true;
        step_.action = std::move(action);
    }

    void loadJson(TableReader& reader, const toml::table& table, HeadUnitAction& action)
    {
        const std::string_view key = action.raisesEvent ? "with" : "value";
        const toml::node* value = reader.node(key);
        if (value == nullptr && !action.raisesEvent) {
            problem(table, "expected the key 'value' in the headunit step, got none");
        } else if (value != nullptr && action.raisesEvent && !value->is_table()) {
            problem(*value, "'with': expected a table of arguments, as in { speed = 70 }");
        } else {
            const auto json = value == nullptr ? std::optional<std::string>("{}") : jsonText(*value);
            if (!json) {
                problem(*value, "expected a value of JSON, got a date or a time: put it in quotation marks");
            }
            action.json = json.value_or("");
        }
    }

    std::vector<StoredField> loadStore(const std::vector<const Field*>& fields, const std::string& frame)
    {
        std::vector<StoredField> list;
        const Keep keep = loadKeep(reader_);
        const toml::node* node = reader_.node("store");
        if (node == nullptr) {
            return list;
        }
        if (fields.empty()) {
            problem(*node, fmt::format("'store': expected a reply with a field, but {} has none", inQuotes(frame)));
        } else if (const auto* text = node->as_string()) {
            if (fields.size() != 1) {
                problem(*node, fmt::format("'store': expected one field of {}, as in {{ {} = \"{}\" }}, got {}",
                                           inQuotes(frame), text->get(), fields.front()->name, inQuotes(text->get())));
                return list;
            }
            addVariable(*node, text->get(), {fields.front(), isNumber(*fields.front())});
            list.push_back({text->get(), std::string(fields.front()->name), keep});
        } else if (const auto* table = node->as_table()) {
            for (const auto& [key, value] : *table) {
                const auto field = value.value<std::string>();
                const auto found =
                    field ? std::ranges::find(fields, *field, &Field::name) : std::ranges::find(fields, nullptr);
                if (found == fields.end()) {
                    std::vector<std::string_view> names;
                    std::ranges::transform(fields, std::back_inserter(names), &Field::name);
                    problem(value, field ? fmt::format("unknown field {} of {}{}", inQuotes(*field), inQuotes(frame),
                                                       protocol::didYouMean(*field, names))
                                         : fmt::format("'store': expected the name of a field of {}", inQuotes(frame)));
                    continue;
                }
                addVariable(value, std::string(key.str()), {*found, isNumber(**found)});
                list.push_back({std::string(key.str()), *field, keep});
            }
        } else {
            problem(*node, "'store': expected a name or { NAME = \"FIELD\" }");
        }
        return list;
    }

    void addVariable(const toml::node& node, const std::string& name, Variable variable)
    {
        if (!isVariableName(name)) {
            problem(node, fmt::format("'store': expected letters, digits, '-' and '_', got {}", inQuotes(name)));
        }
        const auto known = context_.variables.find(name);
        if (known != context_.variables.end() && known->second.isParameter) {
            problem(node, fmt::format("'store': expected another name than the parameter's, got {}", inQuotes(name)));
            return;
        }
        context_.variables.insert_or_assign(name, std::move(variable));
    }

    void loadCommon()
    {
        if (const auto name = reader_.optionalText("name")) {
            step_.name = *name;
        }
        const bool asks = std::holds_alternative<Prompt>(step_.action);
        if (!std::holds_alternative<Pause>(step_.action)) {
            step_.timeout = seconds(reader_, "timeout", step_.timeout, asks ? 1 : 0.001);
        }
        step_.repeat = count(reader_, "repeat", 1, 1);
        step_.retries = count(reader_, "retries", context_.retries, 0);
        if (const auto most = std::int64_t{step_.repeat} * (1 + step_.retries); most > kMostAttempts) {
            reader_.report(
                "repeat", fmt::format("'repeat': expected at most {} attempts with all retries, got {}; a group can be "
                                      "repeated without limit",
                                      kMostAttempts, most));
        }
        step_.retryDelay = seconds(reader_, "retry_delay", context_.retryDelay);
        step_.onFailure = onFailure(reader_).value_or(context_.onFailure);
        loadRequires(reader_, step_);
        step_.onlyIf = loadConditions(context_, reader_);
        step_.ifStored = reader_.text("if_stored");
        if (!step_.ifStored.empty() && !context_.variables.contains(step_.ifStored)) {
            reader_.report("if_stored",
                           fmt::format("expected an earlier step with store = \"{}\" or a parameter of this name, "
                                       "got none",
                                       step_.ifStored));
        }
    }

    Context& context_;
    const toml::table& table_;
    TableReader reader_;
    Step step_;
};

}  // namespace

Step loadStep(Context& context, const toml::table& table)
{
    return StepLoader(context, table).load();
}

}  // namespace station::plan::loading
