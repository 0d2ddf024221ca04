// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/propertyquestions.hpp"

#include "switch/buspost.hpp"

#include <algorithm>

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
        property_state_add_key_value(state.get(), key, event_get_value_at(event, i),
                                     event_has_tag_at(event, i, PROPERTY_STATE_TAG));
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
    PropertyQuestions &owner;
    guint32 token;
    guint32 subscription_id;
    BusMessageOwner call;
    ExpressionOwner expression;
    EventTimerOwner timer;
    std::vector<guint32> asked; // global ids
    guint waiting = 0;          // for the answers of so many producers
    bool skipped = false;       // some producer could not be asked
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
    for (const Declaration *declaration : properties)
        ask_producer(question, *declaration);
    start_timer(question, question.waiting > 0 ? deadline_usec : 0, end_of_deadline);
}

void PropertyQuestions::ask_producer(Question &question, const Declaration &declaration)
{
    const std::string &name = declaration.producer.name;
    BusMessageOwner call =
        BusPost::new_subscribe_call(bus_, declaration, question.expression.get());
    if (!call || !may_be_asked(name)) {
        question.skipped = true;
        return;
    }
    askings_.push_front({*this, question.token, name, nullptr, {}});
    Asking &asking = askings_.front();
    asking.place = askings_.begin();
    ++askings_of_[name];
    // The bus answers for a producer that leaves; until then the call counts there, so it counts
    // here too, however long that takes.
    sd_bus_slot *slot = nullptr;
    int r =
        sd_bus_call_async(bus_, &slot, call.get(), receive_subscribe_answer, &asking, G_MAXUINT64);
    asking.slot.reset(slot);
    if (r < 0) {
        question.skipped = true;
        settle(asking);
        return;
    }
    question.asked.push_back(declaration.global_id);
    ++question.waiting;
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
    if (found == self.questions_.end())
        return 0;
    Question &question = *found->second;
    if (--question.waiting == 0)
        self.start_timer(question, grace_usec, end_of_grace);
    return 0;
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
    question.owner.refuse(question, question.skipped ? "The producers did not answer in time"
                                                     : "The property has no state");
    return 0;
}

void PropertyQuestions::refuse(Question &question, const char *reason)
{
    sd_bus_reply_method_errorf(question.call.get(), SD_BUS_ERROR_FILE_NOT_FOUND, "%s", reason);
    end(question);
}

void PropertyQuestions::receive(const event *event, guint32 token)
{
    auto found = questions_.find(token);
    if (found == questions_.end())
        return;
    Question &question = *found->second;
    PropertyStateOwner state = state_from(event);
    ArrayOwner bytes(property_state_serialize(state.get()));
    sd_bus_message *reply = nullptr;
    if (sd_bus_message_new_method_return(question.call.get(), &reply) >= 0) {
        BusMessageOwner owner(reply);
        sd_bus_message_append_array(reply, 'y', bytes->data, bytes->len);
        sd_bus_send(bus_, reply, nullptr);
    }
    end(question);
}

// Takes the switch's own subscription back where it was made and its declaration still is.
void PropertyQuestions::end(Question &question)
{
    BusPost post(bus_);
    for (const Declaration *declaration : book_.find_properties(question.expression.get()))
        if (std::find(question.asked.begin(), question.asked.end(), declaration->global_id) !=
            question.asked.end())
            post.unsubscribe(*declaration, question.subscription_id);
    questions_.erase(question.token);
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
