// SPDX-License-Identifier: LGPL-2.1-or-later

// What producers call.

#include "switch/request.hpp"
#include "switch/service.hpp"

#include <memory>

namespace qandor {
namespace {

// A key has a value in each declaration, though it may be open or empty.
bool has_its_topic(const Request &request)
{
    return request.shape().internal || request.has_key("topic0");
}

int declare(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Book &book = request.service().book;
    Peer peer;
    if (!request.read_peer(peer) || !request.read_record(RecordKind::EventDeclaration))
        return request.refusal();
    if (!has_its_topic(request)) {
        request.refuse(SD_BUS_ERROR_INVALID_ARGS,
                       "An external declaration needs a value for 'topic0'");
        return request.refusal();
    }
    guint32 local_id = request.shape().local_id;
    if (!request.admit(book.refusal_to_declare(peer, local_id, request.cost())) ||
        !request.admit_key_names())
        return request.refusal();
    DeclarationOwner record(event_declaration_deserialize(request.record()));
    // First the answer: a declaration that is replaced has its subscribers told.
    int r = request.answer();
    book.declare(peer, std::move(record));
    return r;
}

int undeclare(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    PeerAddress peer;
    if (!request.read_object(peer))
        return request.refusal();
    guint32 global_id = request.read_number();
    int r = request.answer();
    request.service().book.undeclare(peer, global_id);
    return r;
}

int disconnect(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    PeerAddress peer;
    if (!request.read_object(peer))
        return request.refusal();
    int r = request.answer();
    request.service().book.disconnect_producer(peer);
    return r;
}

int answer_type_result(Request &request, TypeResult result)
{
    switch (result) {
    case TypeResult::Done:
        return request.answer();
    case TypeResult::BadName:
        request.refuse(SD_BUS_ERROR_INVALID_ARGS,
                       "A type's name is 1 to 128 letters, digits, '.', '_' and '-' and does not "
                       "begin with '.'");
        break;
    case TypeResult::Unreadable:
        request.refuse(SD_BUS_ERROR_INVALID_ARGS, "The declaration is too large as XML");
        break;
    case TypeResult::Different:
        request.refuse(SD_BUS_ERROR_INVALID_ARGS,
                       "The declaration has something that XML cannot say");
        break;
    case TypeResult::TooMany:
        request.refuse(SD_BUS_ERROR_LIMITS_EXCEEDED, "The list of all types would be too long");
        break;
    case TypeResult::Exists:
        request.refuse(SD_BUS_ERROR_FILE_EXISTS, "The type is part of the system");
        break;
    case TypeResult::NotFound:
        request.refuse(SD_BUS_ERROR_FILE_NOT_FOUND, "There is no such type");
        break;
    case TypeResult::ReadOnly:
        request.refuse(SD_BUS_ERROR_ACCESS_DENIED, "The type is part of the system");
        break;
    case TypeResult::Failed:
        request.refuse(SD_BUS_ERROR_IO_ERROR, "The folder of types cannot be written");
        break;
    }
    return request.refusal();
}

constexpr const char *change_types = "add and remove types";

// Answered when the folder has been changed. Meanwhile the call is kept, with all that points into
// it.
int change_types_later(Request &request, guint32 uid, std::size_t bytes, TypeChanges::Begin begin)
{
    constexpr std::size_t overhead = 2048;
    Accounts &accounts = request.service().accounts;
    Usage waiting{.waiting_bytes = bytes + overhead};
    if (!request.admit(accounts.refusal(uid, waiting)))
        return request.refusal();
    std::shared_ptr<sd_bus_message> call(sd_bus_message_ref(request.call()), sd_bus_message_unref);
    request.service().type_changes.add(uid, accounts.charge(uid, waiting), std::move(begin),
                                       [call, &service = request.service()](TypeResult result) {
                                           Request answering(call.get(), &service);
                                           answer_type_result(answering, result);
                                       });
    return 1;
}

int add_declaration(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Sender sender{};
    if (!request.check_sender_is_trusted(change_types) || !request.find_sender(sender))
        return request.refusal();
    std::string type = request.read_text();
    if (!request.read_record(RecordKind::EventDeclaration))
        return request.refusal();
    auto begin = [type, bytes = *request.record(), &folders = request.service().folders]() mutable {
        DeclarationOwner record(event_declaration_deserialize(&bytes));
        return folders.add(type, record.get());
    };
    return change_types_later(request, sender.uid, request.record()->len, std::move(begin));
}

int remove_declaration(sd_bus_message *call, void *userdata, sd_bus_error *)
{
    Request request(call, userdata);
    Sender sender{};
    if (!request.check_sender_is_trusted(change_types) || !request.find_sender(sender))
        return request.refusal();
    auto begin = [type = std::string(request.read_text()), &folders = request.service().folders] {
        return folders.remove(type);
    };
    return change_types_later(request, sender.uid, 0, std::move(begin));
}

} // namespace

const sd_bus_vtable producer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Declare", "ssay", nullptr, declare, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Undeclare", "su", nullptr, undeclare, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Disconnect", "s", nullptr, disconnect, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("AddDeclaration", "say", nullptr, add_declaration, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RemoveDeclaration", "s", nullptr, remove_declaration,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

} // namespace qandor
