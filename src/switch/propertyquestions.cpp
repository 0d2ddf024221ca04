// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/propertyquestions.hpp"

#include "switch/buspost.hpp"

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

ExpressionOwner clandestine_copy(const subscribe_expression *expression)
{
    // The flag is fixed at creation and travels in the record alone: it stands before the
    // conditions, behind the routing data, which is empty here.
    ExpressionOwner plain(subscribe_expression_copy(expression));
    subscribe_expression_set_dbus_service(plain.get(), "");
    subscribe_expression_set_dbus_object(plain.get(), "");
    ArrayOwner bytes(subscribe_expression_serialize(plain.get()));
    constexpr guint flag = 1 + 4 + 2 + 2 + 4;
    bytes->data[flag] = 1;
    return ExpressionOwner(subscribe_expression_deserialize(bytes.get()));
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
    ExpressionOwner expression;
    guint waiting; // for the answers of so many producers, those not asked yet included
    EventTimerOwner timer;
    std::vector<Asked> asked;
};

// A Subscribe call under way. It may outlive its question.
struct PropertyQuestions::Asking {
    PropertyQuestions &owner;
    guint32 token;
    std::string name;
    BusSlotOwner slot;
    std::list<Asking>::iterator place;
};

PropertyQuestions::PropertyQuestions(sd_bus *bus, Book &book) : bus_(bus), book_(book) {}

PropertyQuestions::~PropertyQuestions() = default;

bool PropertyQuestions::may_be_asked(const std::string &name) const
{
    auto of_name = askings_of_.find(name);
    return askings_.size() < max_askings &&
           (of_name == askings_of_.end() || of_name->second < max_askings_of_one);
}

void PropertyQuestions::ask(sd_bus_message *call, const subscribe_expression *expression)
{
    std::vector<const Declaration *> properties = book_.find_properties(expression);
    if (properties.empty()) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FILE_NOT_FOUND,
                                   "No property matches the expression");
        return;
    }
    guint32 token = next_id(last_token_, questions_);
    auto made = std::make_unique<Question>(Question{*this,
                                                    token,
                                                    book_.new_subscription_id(),
                                                    BusMessageOwner(sd_bus_message_ref(call)),
                                                    clandestine_copy(expression),
                                                    static_cast<guint>(properties.size()),
                                                    nullptr,
                                                    {}});
    Question &question = *made;
    questions_.emplace(token, std::move(made));

    const char *own_name = "";
    sd_bus_get_unique_name(bus_, &own_name);
    subscribe_expression_set_id(question.expression.get(), question.subscription_id);
    subscribe_expression_set_dbus_service(question.expression.get(), own_name);
    subscribe_expression_set_dbus_object(question.expression.get(), object);
    subscribe_expression_set_consumer_token(question.expression.get(), token);
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
    BusMessageOwner call =
        BusPost::new_subscribe_call(bus_, declaration, question.expression.get());
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

void PropertyQuestions::receive(const event *event, guint32 token, const std::string &sender)
{
    auto found = questions_.find(token);
    if (found == questions_.end())
        return;
    Question &question = *found->second;
    if (std::none_of(question.asked.begin(), question.asked.end(),
                     [&sender](const auto &asked) { return asked.name == sender; }))
        return;
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
