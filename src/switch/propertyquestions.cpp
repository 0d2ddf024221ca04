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
// A stock bus refuses the 129th unanswered call. Producers that do not answer must not use up what
// the others need, so each has a share, and so have all of them together.
constexpr std::size_t max_askings = 100;
constexpr guint max_askings_of_one = 4;

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
    struct Asked {
        guint32 global_id;
        std::string name;
    };

    PropertyQuestions &owner;
    guint32 token;
    guint32 subscription_id;
    BusMessageOwner call;
    std::string expression; // serialized
    guint waiting;          // for the answers of so many producers, those not asked yet included
    Charge charge;
    EventTimerOwner timer{};
    std::vector<Asked> asked{};
};

// A Subscribe call under way. It may outlive its question.
struct PropertyQuestions::Asking {
    PropertyQuestions &owner;
    guint32 token;
    std::string name;
    BusSlotOwner slot;
    std::list<Asking>::iterator place;
};

PropertyQuestions::PropertyQuestions(sd_bus *bus, Book &book, Accounts &accounts)
    : bus_(bus), book_(book), accounts_(accounts)
{
}

PropertyQuestions::~PropertyQuestions() = default;

bool PropertyQuestions::may_be_asked(const std::string &name) const
{
    auto of_name = askings_of_.find(name);
    return askings_.size() < max_askings &&
           (of_name == askings_of_.end() || of_name->second < max_askings_of_one);
}

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
    guint32 token = next_id(last_token_, questions_);
    guint32 subscription_id = book_.new_subscription_id();
    const char *own_name = "";
    sd_bus_get_unique_name(bus_, &own_name);
    auto made = std::make_unique<Question>(
        Question{*this, token, subscription_id, BusMessageOwner(sd_bus_message_ref(call)),
                 own_record(expression, subscription_id, own_name, token),
                 static_cast<guint>(properties.size()), accounts_.charge(uid, one_question)});
    Question &question = *made;
    questions_.emplace(token, std::move(made));
    start_timer(question, deadline_usec, end_of_deadline);
    for (const Declaration *declaration : properties)
        unasked_.push_back({token, declaration->global_id});
    ask_next();
}

// Asks whoever may be asked now; the others stay in the queue.
void PropertyQuestions::ask_next()
{
    for (auto at = unasked_.begin(); at != unasked_.end() && askings_.size() < max_askings;) {
        Question &question = *questions_.at(at->token);
        const Declaration *declaration = book_.find_declaration(at->global_id);
        if (declaration && !may_be_asked(declaration->producer.name)) {
            ++at;
            continue;
        }
        at = unasked_.erase(at);
        if (declaration)
            ask_producer(question, *declaration);
        else
            count_answer(question);
    }
}

void PropertyQuestions::ask_producer(Question &question, const Declaration &declaration)
{
    const std::string &name = declaration.producer.name;
    BusMessageOwner call = BusPost::new_subscribe_call(bus_, declaration, question.expression);
    askings_.push_front({*this, question.token, name, nullptr, {}});
    Asking &asking = askings_.front();
    asking.place = askings_.begin();
    ++askings_of_[name];
    // The bus answers for a producer that leaves; until then the call counts there, so it counts
    // here too, however long that takes.
    sd_bus_slot *slot = nullptr;
    int r = call ? sd_bus_call_async(bus_, &slot, call.get(), receive_subscribe_answer, &asking,
                                     G_MAXUINT64)
                 : -ENOMEM;
    asking.slot.reset(slot);
    if (r < 0)
        settle(asking); // nobody answers: the deadline ends the question
    else
        question.asked.push_back({declaration.global_id, name});
}

void PropertyQuestions::settle(Asking &asking)
{
    auto of_name = askings_of_.find(asking.name);
    if (--of_name->second == 0)
        askings_of_.erase(of_name);
    askings_.erase(asking.place);
}

int PropertyQuestions::receive_subscribe_answer(sd_bus_message *, void *data, sd_bus_error *)
{
    auto &asking = *static_cast<Asking *>(data);
    PropertyQuestions &self = asking.owner;
    auto found = self.questions_.find(asking.token);
    self.settle(asking);
    if (found != self.questions_.end())
        self.count_answer(*found->second);
    self.ask_next();
    return 0;
}

void PropertyQuestions::count_answer(Question &question)
{
    if (--question.waiting == 0)
        start_timer(question, grace_usec, end_of_grace);
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
           std::any_of(found->second->asked.begin(), found->second->asked.end(),
                       [&sender](const auto &asked) { return asked.name == sender; });
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
    BusPost post(bus_);
    for (const auto &[global_id, name] : question.asked)
        if (const Declaration *declaration = book_.find_declaration(global_id))
            post.unsubscribe(*declaration, question.subscription_id);
    BusMessageOwner call = std::move(question.call);
    guint32 token = question.token;
    unasked_.remove_if([token](const Unasked &unasked) { return unasked.token == token; });
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
