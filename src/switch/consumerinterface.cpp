// SPDX-License-Identifier: LGPL-2.1-or-later

// What consumers and those who look around call.

#include "switch/request.hpp"
#include "switch/service.hpp"

#include <memory>

namespace qandor {
namespace {

int subscribe(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Book &book = request.service().book;
    Peer peer;
    if (!request.read_peer(peer))
        return request.refusal();
    guint32 token = request.read_number();
    if (!request.read_record(RecordKind::SubscribeExpression) ||
        !request.admit(book.refusal_to_subscribe(peer, token, request.cost())) ||
        !request.admit_key_names())
        return request.refusal();
    ExpressionOwner record(subscribe_expression_deserialize(request.record()));
    // First the answer: the producers of a subscription that is replaced are told.
    int r = request.answer();
    book.subscribe(peer, token, std::move(record));
    return r;
}

// The calls that name a subscription by its token.
int with_token(sd_bus_message *call, void *userdata,
               void (Book::*effect)(const PeerAddress &, guint32))
{
    Request request(call, userdata);
    PeerAddress peer;
    if (!request.read_object(peer))
        return request.refusal();
    guint32 token = request.read_number();
    int r = request.answer();
    (request.service().book.*effect)(peer, token);
    return r;
}

int unsubscribe(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    return with_token(call, userdata, &Book::unsubscribe);
}

int refresh_property(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    return with_token(call, userdata, &Book::refresh_property);
}

int disconnect(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    PeerAddress peer;
    if (!request.read_object(peer))
        return request.refusal();
    int r = request.answer();
    request.service().book.disconnect_consumer(peer);
    return r;
}

int get_property_state(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Sender sender{};
    if (!request.read_record(RecordKind::SubscribeExpression) || !request.find_sender(sender) ||
        !request.admit(
            request.service().questions.refusal_to_ask(sender.uid, request.record()->len)) ||
        !request.admit_key_names())
        return request.refusal();
    ExpressionOwner expression(subscribe_expression_deserialize(request.record()));
    request.service().questions.ask(call, sender.uid, expression.get());
    return 1;
}

gint64 append_bytes(sd_bus_message *reply, const std::string &bytes)
{
    int r = sd_bus_message_append_array(reply, 'y', bytes.data(), bytes.size());
    return r < 0 ? r : static_cast<gint64>(bytes.size());
}

int get_all_declarations(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Service &service = request.service();
    return request.answer_later(service.accounts.total().declared_bytes,
                                [&service](sd_bus_message *reply) {
                                    return append_bytes(reply, service.book.list_declarations());
                                });
}

// How long the list is shows when it is read from the folders.
int answer_with_types(sd_bus_message *call, Service &service)
{
    Request request(call, &service);
    return request.answer_later(Windows::of_name, [&service](sd_bus_message *reply) {
        return append_bytes(reply, service.folders.list());
    });
}

// A user that has just changed types sees what has come of it.
int get_declaration_types(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Service &service = request.service();
    Sender sender{};
    if (!request.find_sender(sender) || !service.type_changes.holds(sender.uid))
        return answer_with_types(call, service);
    std::shared_ptr<sd_bus_message> kept(sd_bus_message_ref(call), sd_bus_message_unref);
    service.type_changes.add(
        sender.uid, {}, [] { return TypeResult::Done; },
        [kept, &service](TypeResult) { answer_with_types(kept.get(), service); });
    return 1;
}

} // namespace

const sd_bus_vtable consumer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Subscribe", "ssuay", nullptr, subscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Unsubscribe", "su", nullptr, unsubscribe, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RefreshProperty", "su", nullptr, refresh_property, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Disconnect", "s", nullptr, disconnect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetPropertyState", "ay", "ay", get_property_state, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable query_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetAllDeclarations", "", "ay", get_all_declarations, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetDeclarationTypes", "", "ay", get_declaration_types,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace qandor
