// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/propertyquestions.hpp"

#include "switch/buspost.hpp"
#include "switch/replybudget.hpp"

#include <qandor/serialize.h>

#include <algorithm>
#include <cerrno>

namespace qandor {
namespace {

constexpr guint64 deadline_usec = 2 * G_USEC_PER_SEC;
// For an event that comes behind the answer of its producer.
constexpr guint64 grace_usec = 50 * 1000;
// Properties of one bus name in one question that are queued, not sent yet or not answered.
constexpr guint max_unanswered_of_name = 8;

// The call stays until it is answered, beside the expression as it goes to the producers.
Usage usage_of_question(std::size_t bytes)
{
    constexpr std::size_t overhead = 2048;
    return {.questions = 1, .waiting_bytes = 2 * bytes + overhead};
}

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

// What a question wants to know of one bus name.
struct PropertyQuestions::Share {
    std::vector<guint32> properties; // global ids of the declarations to ask, in order
    std::size_t next = 0;            // of the properties
    guint unanswered = 0;            // of those before
    bool is_asking = true;           // then ask_more() has nothing to do
};

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
    std::string expression; // serialized
    Charge charge;
    std::map<std::string, Share> shares{}; // by bus name
    std::size_t left = 0;                  // properties that have not answered
    EventTimerOwner timer{};
    std::vector<Subscribed> subscribed{};
};

// A Subscribe call under way. It may outlive its question.
struct PropertyQuestions::Asking {
    PropertyQuestions &owner;
    guint32 token;
    guint32 asker; // user ids
    guint32 declarer;
    std::string name;
    BusSlotOwner slot; // NULL until the call goes out
    std::list<Asking>::iterator place;
};

bool PropertyQuestions::Asked::must_queue() const
{
    return under_way >= max_askings_of_name && !silent;
}

PropertyQuestions::PropertyQuestions(sd_bus *bus, Outbox &outbox, Replies &replies, Post &post,
                                     Book &book, Accounts &accounts)
    : bus_(bus), outbox_(outbox), replies_(replies), post_(post), book_(book), accounts_(accounts)
{
}

PropertyQuestions::~PropertyQuestions() = default;

std::optional<std::string> PropertyQuestions::refusal_to_ask(guint32 uid, std::size_t bytes) const
{
    return accounts_.refusal(uid, usage_of_question(bytes));
}

void PropertyQuestions::ask(sd_bus_message *call, guint32 uid,
                            const subscribe_expression *expression)
{
    std::vector<const Declaration *> properties = book_.find_properties(expression);
    if (properties.empty()) {
        replies_.refuse(call, SD_BUS_ERROR_FILE_NOT_FOUND, "No property matches the expression");
        return;
    }
    guint32 token = next_id(last_token_, questions_);
    guint32 subscription_id = book_.new_subscription_id();
    const char *own_name = nullptr;
    if (sd_bus_get_unique_name(bus_, &own_name) < 0) {
        replies_.refuse(call, SD_BUS_ERROR_FAILED, "The switch is leaving the bus");
        return;
    }
    std::string record = own_record(expression, subscription_id, own_name, token);
    Usage usage = usage_of_question(record.size());
    usage.waiting_bytes += properties.size() * (sizeof(guint32) + sizeof(Question::Subscribed));
    auto made = std::make_unique<Question>(
        Question{*this, token, subscription_id, uid, BusMessageOwner(sd_bus_message_ref(call)),
                 std::move(record), accounts_.charge(uid, usage)});
    Question &question = *made;
    for (const Declaration *declaration : properties)
        question.shares[declaration->producer.name].properties.push_back(declaration->global_id);
    question.left = properties.size();
    questions_.emplace(token, std::move(made));
    start_timer(question, deadline_usec, end_of_deadline);
    // By global id, as far as the shares go.
    for (const Declaration *declaration : properties)
        ask_next(question, question.shares.at(declaration->producer.name));
    for (auto &[name, share] : question.shares) {
        share.is_asking = false;
        ask_more(question, share);
    }
}

// What is asked may be answered, or sent without waiting, before this comes back.
void PropertyQuestions::ask_more(Question &question, Share &share)
{
    if (std::exchange(share.is_asking, true))
        return;
    while (ask_next(question, share)) {
    }
    share.is_asking = false;
    if (question.left == 0)
        start_timer(question, grace_usec, end_of_grace);
}

// Whether there was one that may be asked now.
bool PropertyQuestions::ask_next(Question &question, Share &share)
{
    if (share.next == share.properties.size() || share.unanswered == max_unanswered_of_name)
        return false;
    guint32 global_id = share.properties[share.next++];
    const Declaration *declaration = book_.find_declaration(global_id);
    if (!declaration) {
        --question.left;
        return true;
    }
    ++share.unanswered;
    Unasked next{question.token, global_id, declaration->producer.name};
    auto asked = asked_.find(next.name);
    if (asked != asked_.end() && asked->second.must_queue())
        asked->second.queue.push_back(next);
    else
        ask_producer(question, next);
    return true;
}

bool PropertyQuestions::may_wait_for_answer(guint32 asker, guint32 declarer,
                                            const std::string &name) const
{
    auto of_name = asked_.find(name);
    return askings_under_way_.has_room(asker, declarer) &&
           (of_name == asked_.end() || of_name->second.under_way < max_askings_of_name);
}

// The declaration is there.
void PropertyQuestions::ask_producer(Question &question, const Unasked &next)
{
    guint32 declarer = book_.find_declaration(next.global_id)->uid;
    Asking *asking = may_wait_for_answer(question.uid, declarer, next.name)
                         ? &begin_asking(question, declarer, next.name)
                         : nullptr;
    Outbox::Cause cause(outbox_, question.uid);
    std::size_t bytes = question.expression.size();
    outbox_.add(next.name, Outbox::Kind::Call, bytes, [this, next, asking, bytes]() -> gint64 {
        return subscribe(next, asking) ? static_cast<gint64>(bytes) : 0;
    });
}

PropertyQuestions::Asking &
PropertyQuestions::begin_asking(const Question &question, guint32 declarer, const std::string &name)
{
    askings_.push_front({*this, question.token, question.uid, declarer, name, nullptr, {}});
    askings_.front().place = askings_.begin();
    ++asked_[name].under_way;
    askings_under_way_.begin(question.uid, declarer);
    return askings_.front();
}

// Meanwhile the question or the declaration may have gone. Returns whether something was sent.
bool PropertyQuestions::subscribe(const Unasked &next, Asking *asking)
{
    auto question = questions_.find(next.token);
    const Declaration *declaration = book_.find_declaration(next.global_id);
    BusMessageOwner call;
    if (question != questions_.end() && declaration)
        call = BusPost::new_subscribe_call(bus_, declaration->producer,
                                           question->second->expression, declaration->local_id);
    bool is_sent = call && send(call.get(), asking) >= 0;
    if (is_sent)
        question->second->subscribed.push_back({next.global_id, declaration->producer.name});
    if (is_sent && !asking)
        count_unanswerable(next.token, next.name);
    else if (!is_sent && asking)
        end_asking(*asking);
    else if (!is_sent)
        count_answer(next.token, next.name);
    return is_sent;
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
        if (book_.find_declaration(next.global_id))
            ask_producer(*questions_.at(next.token), next);
        else
            count_answer(next.token, next.name);
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
    guint32 token = asking.token;
    askings_under_way_.end(asking.asker, asking.declarer);
    --asked_.at(name).under_way;
    askings_.erase(asking.place);
    count_answer(token, name);
    ask_queued(name);
}

void PropertyQuestions::count_answer(guint32 token, const std::string &name)
{
    auto found = questions_.find(token);
    if (found == questions_.end())
        return;
    Question &question = *found->second;
    --question.left;
    --question.shares.at(name).unanswered;
    ask_more(question, question.shares.at(name));
}

// Whether the property has no state is not known before the deadline, but the next may be asked.
void PropertyQuestions::count_unanswerable(guint32 token, const std::string &name)
{
    Question &question = *questions_.at(token);
    --question.shares.at(name).unanswered;
    ask_more(question, question.shares.at(name));
}

// Notes the names that have not answered the question, or in whose queue it still waits.
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
    replies_.refuse(call.get(), SD_BUS_ERROR_FILE_NOT_FOUND, reason);
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
    replies_.answer(call.get(), [&bytes](sd_bus_message *reply) {
        return sd_bus_message_append_array(reply, 'y', bytes->data, bytes->len);
    });
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
    forget_unsent(name);
}

// The outbox has thrown away what waited for the name. The bus answers for it what was sent.
void PropertyQuestions::forget_unsent(const std::string &name)
{
    auto is_unsent = [&name](const Asking &asking) { return asking.name == name && !asking.slot; };
    for (;;) {
        auto unsent = std::ranges::find_if(askings_, is_unsent);
        if (unsent == askings_.end())
            return;
        end_asking(*unsent);
    }
}

} // namespace qandor
