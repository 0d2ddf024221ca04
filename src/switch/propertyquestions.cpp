// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/propertyquestions.hpp"

#include "switch/buspost.hpp"

#include <qandor/serialize.h>

#include <algorithm>
#include <cerrno>

namespace qandor {
namespace {

constexpr guint64 deadline_usec = 2 * G_USEC_PER_SEC;
// For an event that comes behind the answer of its producer.
constexpr guint64 grace_usec = 50 * 1000;
// A stock bus refuses the 129th unanswered call, and a producer may stay silent for ever. So the
// answers that are waited for are bounded, and each user who asks has a share. Beyond it producers
// are asked without waiting for their answer: a state is heard of all the same.
constexpr std::size_t max_askings = 100;
constexpr guint max_askings_of_user = 32;
// With one bus name; the others queue up, unless it has shown itself silent.
constexpr guint max_askings_of_name = 4;
// Of one question, asked or in a queue.
constexpr guint max_unanswered = 64;

constexpr Usage one_question{.questions = 1};

PropertyStateOwner state_from(const event *event)
{
    PropertyStateOwner state(property_state_new());
    for (guint i = 0; i < event_get_key_count(event); ++i) {
        const gchar *key = event_get_key_at(event, i);
        if (property_state_add_key_value(state.get(), key, event_get_value_at(event, i),
                                         event_has_tag_at(event, i, PROPERTY_STATE_TAG)))
            property_state_set_name_space(state.get(), key, event_get_name_space_at(event, i));
    }
    return state;
}

// The conditions of an expression in a record of the switch's own, which is clandestine.
std::string own_record(const subscribe_expression *expression, guint32 subscription_id,
                       const char *name, guint32 token)
{
    ExpressionOwner copy(subscribe_expression_copy(expression));
    ArrayOwner record(serialize_create_array());
    serialize_8bit(record.get(), SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
    serialize_32bit(record.get(), subscription_id);
    serialize_string(record.get(), name);
    serialize_string(record.get(), PropertyQuestions::object);
    serialize_32bit(record.get(), token);
    serialize_8bit(record.get(), TRUE);
    inspectable_serialize_internal(subscribe_expression_get_inspectable(copy.get()), record.get());
    return {record->data, record->len};
}

} // namespace

struct PropertyQuestions::Question {
    struct Subscribed {
        guint32 global_id;
        std::string name;
    };

    PropertyQuestions &owner;
    guint32 token;
    guint32 subscription_id;
    guint32 uid; // who asks
    BusMessageOwner call;
    std::string expression;          // serialized
    std::vector<guint32> properties; // global ids of the declarations to ask, in order
    Charge charge;
    std::size_t next = 0; // of the properties
    guint unanswered = 0; // of those before
    EventTimerOwner timer{};
    std::vector<Subscribed> subscribed{};
};

// A Subscribe call under way. It may outlive its question.
struct PropertyQuestions::Asking {
    PropertyQuestions &owner;
    guint32 token;
    guint32 uid; // of the asker
    std::string name;
    BusSlotOwner slot;
    std::list<Asking>::iterator place;
};

bool PropertyQuestions::Asked::must_queue() const
{
    return under_way >= max_askings_of_name && !silent;
}

PropertyQuestions::PropertyQuestions(sd_bus *bus, Outbox &outbox, Post &post, Book &book,
                                     Accounts &accounts)
    : bus_(bus), outbox_(outbox), post_(post), book_(book), accounts_(accounts)
{
}

PropertyQuestions::~PropertyQuestions() = default;

std::optional<std::string> PropertyQuestions::refusal_to_ask(guint32 uid) const
{
    return accounts_.refusal(uid, one_question);
}

void PropertyQuestions::ask(sd_bus_message *call, guint32 uid,
                            const subscribe_expression *expression)
{
    std::vector<const Declaration *> properties = book_.find_properties(expression);
    if (properties.empty()) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FILE_NOT_FOUND,
                                   "No property matches the expression");
        return;
    }
    std::vector<guint32> ids;
    ids.reserve(properties.size());
    for (const Declaration *declaration : properties)
        ids.push_back(declaration->global_id);
    guint32 token = next_id(last_token_, questions_);
    guint32 subscription_id = book_.new_subscription_id();
    const char *own_name = "";
    sd_bus_get_unique_name(bus_, &own_name);
    auto made = std::make_unique<Question>(
        Question{*this, token, subscription_id, uid, BusMessageOwner(sd_bus_message_ref(call)),
                 own_record(expression, subscription_id, own_name, token), std::move(ids),
                 accounts_.charge(uid, one_question)});
    Question &question = *made;
    questions_.emplace(token, std::move(made));
    start_timer(question, deadline_usec, end_of_deadline);
    ask_more(question);
}

void PropertyQuestions::ask_more(Question &question)
{
    while (question.next < question.properties.size() && question.unanswered < max_unanswered) {
        guint32 global_id = question.properties[question.next++];
        const Declaration *declaration = book_.find_declaration(global_id);
        if (!declaration)
            continue;
        ++question.unanswered;
        auto asked = asked_.find(declaration->producer.name);
        if (asked != asked_.end() && asked->second.must_queue())
            asked->second.queue.push_back({question.token, global_id});
        else
            ask_producer(question, *declaration);
    }
    if (question.unanswered == 0)
        start_timer(question, grace_usec, end_of_grace);
}

bool PropertyQuestions::may_wait_for_answer(guint32 uid, const std::string &name) const
{
    auto of_user = askings_of_.find(uid);
    auto of_name = asked_.find(name);
    return askings_.size() < max_askings &&
           (of_user == askings_of_.end() || of_user->second < max_askings_of_user) &&
           (of_name == asked_.end() || of_name->second.under_way < max_askings_of_name);
}

void PropertyQuestions::ask_producer(Question &question, const Declaration &declaration)
{
    const std::string &name = declaration.producer.name;
    Unasked next{question.token, declaration.global_id};
    Asking *asking =
        may_wait_for_answer(question.uid, name) ? &begin_asking(question, name) : nullptr;
    Outbox::Cause cause(outbox_, question.uid);
    outbox_.add([this, next, asking] { subscribe(next, asking); });
}

PropertyQuestions::Asking &PropertyQuestions::begin_asking(const Question &question,
                                                           const std::string &name)
{
    askings_.push_front({*this, question.token, question.uid, name, nullptr, {}});
    askings_.front().place = askings_.begin();
    ++asked_[name].under_way;
    ++askings_of_[question.uid];
    return askings_.front();
}

// Meanwhile the question or the declaration may have gone.
void PropertyQuestions::subscribe(const Unasked &next, Asking *asking)
{
    auto question = questions_.find(next.token);
    const Declaration *declaration = book_.find_declaration(next.global_id);
    BusMessageOwner call;
    if (question != questions_.end() && declaration)
        call = BusPost::new_subscribe_call(bus_, declaration->producer,
                                           question->second->expression, declaration->local_id);
    if (call && send(call.get(), asking) >= 0)
        question->second->subscribed.push_back({next.global_id, declaration->producer.name});
    else if (asking)
        end_asking(*asking);
    else if (question != questions_.end())
        count_answer(*question->second);
}

// The bus answers for a producer that leaves; until then the call counts there, so it counts here
// too, however long that takes.
int PropertyQuestions::send(sd_bus_message *call, Asking *asking)
{
    if (!asking) {
        sd_bus_message_set_expect_reply(call, 0);
        return sd_bus_send(bus_, call, nullptr);
    }
    sd_bus_slot *slot = nullptr;
    int r = sd_bus_call_async(bus_, &slot, call, receive_subscribe_answer, asking, G_MAXUINT64);
    asking->slot.reset(slot);
    return r;
}

// Asks those who wait for their turn with a bus name, as far as may be.
void PropertyQuestions::ask_queued(const std::string &name)
{
    for (;;) {
        auto asked = asked_.find(name);
        if (asked == asked_.end() || asked->second.must_queue() || asked->second.queue.empty())
            break;
        Unasked next = asked->second.queue.front();
        asked->second.queue.pop_front();
        Question &question = *questions_.at(next.token);
        if (const Declaration *declaration = book_.find_declaration(next.global_id))
            ask_producer(question, *declaration);
        else
            count_answer(question);
    }
    forget_if_idle(name);
}

void PropertyQuestions::forget_if_idle(const std::string &name)
{
    auto asked = asked_.find(name);
    if (asked != asked_.end() && asked->second.under_way == 0 && asked->second.queue.empty())
        asked_.erase(asked);
}

int PropertyQuestions::receive_subscribe_answer(sd_bus_message *, void *data, sd_bus_error *)
{
    auto &asking = *static_cast<Asking *>(data);
    asking.owner.asked_.at(asking.name).silent = false;
    asking.owner.end_asking(asking);
    return 0;
}

void PropertyQuestions::end_asking(Asking &asking)
{
    std::string name = asking.name;
    auto question = questions_.find(asking.token);
    if (--askings_of_.at(asking.uid) == 0)
        askings_of_.erase(asking.uid);
    --asked_.at(name).under_way;
    askings_.erase(asking.place);
    if (question != questions_.end())
        count_answer(*question->second);
    ask_queued(name);
}

void PropertyQuestions::count_answer(Question &question)
{
    --question.unanswered;
    ask_more(question);
}

// Whoever has not answered the question, or not even let it come to its turn.
void PropertyQuestions::note_silence(const Question &question)
{
    std::set<std::string> silent = forget_queued(question);
    for (const Asking &asking : askings_)
        if (asking.token == question.token)
            silent.insert(asking.name);
    for (const std::string &name : silent) {
        asked_[name].silent = true;
        ask_queued(name);
    }
}

// Returns the names in whose queues it was.
std::set<std::string> PropertyQuestions::forget_queued(const Question &question)
{
    std::set<std::string> names;
    for (auto &[name, asked] : asked_)
        if (std::erase_if(asked.queue, [&question](const Unasked &unasked) {
                return unasked.token == question.token;
            }) > 0)
            names.insert(name);
    return names;
}

void PropertyQuestions::start_timer(Question &question, guint64 usec,
                                    sd_event_time_handler_t handler)
{
    sd_event_source *timer = nullptr;
    sd_event_add_time_relative(sd_bus_get_event(bus_), &timer, CLOCK_MONOTONIC, usec, 1000, handler,
                               &question);
    question.timer.reset(timer);
}

int PropertyQuestions::end_of_deadline(sd_event_source *, uint64_t, void *data)
{
    auto &question = *static_cast<Question *>(data);
    question.owner.note_silence(question);
    question.owner.refuse(question, "The producers did not answer in time");
    return 0;
}

int PropertyQuestions::end_of_grace(sd_event_source *, uint64_t, void *data)
{
    auto &question = *static_cast<Question *>(data);
    question.owner.refuse(question, "The property has no state");
    return 0;
}

void PropertyQuestions::refuse(Question &question, const char *reason)
{
    BusMessageOwner call = end(question);
    sd_bus_reply_method_errorf(call.get(), SD_BUS_ERROR_FILE_NOT_FOUND, "%s", reason);
}

bool PropertyQuestions::expects(guint32 token, const std::string &sender) const
{
    auto found = questions_.find(token);
    return found != questions_.end() &&
           std::any_of(found->second->subscribed.begin(), found->second->subscribed.end(),
                       [&sender](const auto &one) { return one.name == sender; });
}

void PropertyQuestions::receive(const event *event, guint32 token)
{
    Question &question = *questions_.at(token);
    PropertyStateOwner state = state_from(event);
    ArrayOwner bytes(property_state_serialize(state.get()));
    BusMessageOwner call = end(question);
    sd_bus_message *reply = nullptr;
    if (sd_bus_message_new_method_return(call.get(), &reply) >= 0) {
        BusMessageOwner owner(reply);
        sd_bus_message_append_array(reply, 'y', bytes->data, bytes->len);
        sd_bus_send(bus_, reply, nullptr);
    }
}

// Takes the switch's own subscription back where it was made and its declaration still is. Leaves
// the call to be answered.
BusMessageOwner PropertyQuestions::end(Question &question)
{
    Outbox::Cause cause(outbox_, question.uid);
    for (const auto &[global_id, name] : question.subscribed)
        if (const Declaration *declaration = book_.find_declaration(global_id))
            post_.unsubscribe(*declaration, question.subscription_id);
    forget_queued(question);
    BusMessageOwner call = std::move(question.call);
    guint32 token = question.token;
    questions_.erase(token);
    return call;
}

void PropertyQuestions::forget_peer(const std::string &name)
{
    std::vector<guint32> orphaned;
    for (const auto &[token, question] : questions_)
        if (name == sd_bus_message_get_sender(question->call.get()))
            orphaned.push_back(token);
    for (guint32 token : orphaned)
        end(*questions_.at(token));
}

} // namespace qandor
