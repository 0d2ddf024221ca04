// SPDX-License-Identifier: LGPL-2.1-or-later

// The checker of foreign bytes: what it lets pass is read, and used in every way, without ending
// the process. The first byte says which kind of record the others are.

#include "fuzz/fixedrecords.hpp"
#include "fuzz/target.hpp"

#include "model/checker.hpp"
#include "platform/owners.hpp"

#include <qandor/qandor.hpp>

using namespace qandor;
using namespace qandor::fuzz;

namespace {

bool passes(RecordKind kind, const std::string &bytes)
{
    return !check_record(kind, reinterpret_cast<const guint8 *>(bytes.data()), bytes.size());
}

// What a kind of record is read, copied, printed, written and freed with.
template <class Record> struct Uses {
    RecordKind kind;
    Record *(*read)(GArray *);
    GArray *(*write)(const Record *);
    void (*print)(const Record *);
    void (*free)(Record *);
    Record *(*copy)(const Record *) = nullptr;
    gchar *(*write_xml)(const Record *) = nullptr;
    Record *(*read_xml)(const gchar *) = nullptr;
    // Everything that the record matches, as one text.
    std::string (*match)(const Record *) = nullptr;
};

template <class Record> class Owned {
public:
    Owned(Record *record, const Uses<Record> &uses) : record_(record, uses.free) {}
    Record *get() const { return record_.get(); }

private:
    std::unique_ptr<Record, void (*)(Record *)> record_;
};

template <class Record> void use_copy(const Record *record, const Uses<Record> &uses)
{
    Owned<Record> copy(uses.copy(record), uses);
    std::string bytes = take(uses.write(copy.get()));
    must(passes(uses.kind, bytes), "a copy is well-formed");
    Owned<Record> second(uses.copy(copy.get()), uses);
    must(take(uses.write(second.get())) == bytes, "a copy's copy has the same bytes");
    if (uses.match)
        must(uses.match(copy.get()) == uses.match(record), "a copy matches the same");
}

// XML cannot hold control characters, and equal tags collapse in it: what it says is compared with
// what was read from it.
template <class Record> void use_xml(const Record *record, const Uses<Record> &uses)
{
    TextOwner xml(uses.write_xml(record));
    Owned<Record> read(uses.read_xml(xml.get()), uses);
    if (!read.get())
        return; // a document that is too large, a state without a state key
    must(passes(uses.kind, take(uses.write(read.get()))), "what XML said is well-formed");
    TextOwner again(uses.write_xml(read.get()));
    Owned<Record> same(uses.read_xml(again.get()), uses);
    must(same.get() != nullptr, "XML is read again");
    TextOwner last(uses.write_xml(same.get()));
    must(std::string(again.get()) == last.get(), "XML is written as it was read");
    if (uses.match)
        must(uses.match(same.get()) == uses.match(read.get()), "XML matches the same");
}

template <class Record> Owned<Record> read(const std::string &bytes, const Uses<Record> &uses)
{
    ArrayOwner array(array_of(reinterpret_cast<const guint8 *>(bytes.data()), bytes.size()));
    return Owned<Record>(uses.read(array.get()), uses);
}

// Reading leaves away what has no meaning, such as the value of a value wildcard, but for that what
// is written is what was read.
template <class Record>
void use_bytes(const Record *record, const std::string &bytes, const Uses<Record> &uses)
{
    std::string written = take(uses.write(record));
    must(passes(uses.kind, written), "what is written is well-formed");
    must(written.size() <= bytes.size(), "nothing is written that was not read");
    Owned<Record> same = read(written, uses);
    must(take(uses.write(same.get())) == written, "what is written is read as it is");
    if (uses.match)
        must(uses.match(same.get()) == uses.match(record), "what is written matches the same");
}

template <class Record> Owned<Record> use(const guint8 *data, gsize size, const Uses<Record> &uses)
{
    std::string bytes(reinterpret_cast<const char *>(data), size);
    Owned<Record> record = read(bytes, uses);
    use_bytes(record.get(), bytes, uses);
    uses.print(record.get());
    if (uses.copy)
        use_copy(record.get(), uses);
    if (uses.write_xml)
        use_xml(record.get(), uses);
    return record;
}

std::string match_event(const event *event)
{
    std::string matches;
    for (const subscribe_expression *expression : fixed_expressions())
        matches += event_contains(event, expression) ? '1' : '0';
    return matches;
}

std::string match_declaration(const event_declaration *declaration)
{
    std::string matches;
    for (const subscribe_expression *expression : fixed_expressions())
        matches += event_declaration_contains(declaration, expression) ? '1' : '0';
    return matches;
}

std::string match_expression(const subscribe_expression *expression)
{
    std::string matches;
    for (const event_declaration *declaration : fixed_declarations())
        matches += event_declaration_contains(declaration, expression) ? '1' : '0';
    for (const event *event : fixed_events())
        matches += event_contains(event, expression) ? '1' : '0';
    return matches;
}

void use_event(const guint8 *bytes, gsize size)
{
    use<event>(bytes, size,
               {.kind = RecordKind::Event,
                .read = event_deserialize,
                .write = event_serialize,
                .print = event_print,
                .free = event_free,
                .copy = event_copy,
                .match = match_event});
}

void use_declaration(const guint8 *bytes, gsize size)
{
    auto declaration = use<event_declaration>(bytes, size,
                                              {.kind = RecordKind::EventDeclaration,
                                               .read = event_declaration_deserialize,
                                               .write = event_declaration_serialize,
                                               .print = event_declaration_print,
                                               .free = event_declaration_free,
                                               .copy = event_declaration_copy,
                                               .write_xml = event_declaration_serialize_xml,
                                               .read_xml = event_declaration_deserialize_xml,
                                               .match = match_declaration});
    Owner<event, event_free> event(event_declaration_generate_event(declaration.get()));
    must(passes(RecordKind::Event, take(event_serialize(event.get()))),
         "a declaration's event is well-formed");
}

void use_expression(const guint8 *bytes, gsize size)
{
    auto expression = use<subscribe_expression>(bytes, size,
                                                {.kind = RecordKind::SubscribeExpression,
                                                 .read = subscribe_expression_deserialize,
                                                 .write = subscribe_expression_serialize,
                                                 .print = subscribe_expression_print,
                                                 .free = subscribe_expression_free,
                                                 .copy = subscribe_expression_copy,
                                                 .write_xml = subscribe_expression_serialize_xml,
                                                 .read_xml = subscribe_expression_deserialize_xml,
                                                 .match = match_expression});
    std::string text = to_text(expression_of(expression.get()));
    must(std::holds_alternative<Expression>(parse_expression(text)), "its text is an expression's");
}

void use_state(const guint8 *bytes, gsize size)
{
    auto state = use<property_state>(bytes, size,
                                     {.kind = RecordKind::PropertyState,
                                      .read = property_state_deserialize,
                                      .write = property_state_serialize,
                                      .print = property_state_print,
                                      .free = property_state_free,
                                      .write_xml = property_state_serialize_xml,
                                      .read_xml = property_state_deserialize_xml});
    match_expression(property_state_get_subscribe_expression(state.get()));
    match_expression(property_state_get_inverted_subscribe_expression(state.get()));
}

void use_notification(const guint8 *bytes, gsize size)
{
    auto notification = use<::notification>(bytes, size,
                                            {.kind = RecordKind::Notification,
                                             .read = notification_deserialize,
                                             .write = notification_serialize,
                                             .print = notification_print,
                                             .free = notification_free,
                                             .copy = notification_copy});
    notification_get_value(notification.get(), "topic0");
    notification_get_name_space(notification.get(), "topic0");
    notification_is_internal(notification.get());
    notification_is_type_deleted(notification.get());
}

struct Kind {
    RecordKind kind;
    void (*use)(const guint8 *, gsize);
};

constexpr Kind kinds[] = {
    {RecordKind::Event, use_event},
    {RecordKind::EventDeclaration, use_declaration},
    {RecordKind::SubscribeExpression, use_expression},
    {RecordKind::PropertyState, use_state},
    {RecordKind::Notification, use_notification},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    if (size == 0 || bytes[0] >= std::size(kinds))
        return -1; // no seed worth keeping
    const Kind &kind = kinds[bytes[0]];
    if (!check_record(kind.kind, bytes + 1, size - 1))
        kind.use(bytes + 1, size - 1);
    return 0;
}
