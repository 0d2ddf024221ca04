// SPDX-License-Identifier: LGPL-2.1-or-later

// Texts as XML: what is read is well-formed, and is written and read again as it was. The first
// byte says which element is wanted.

#include "fuzz/target.hpp"

#include "model/checker.hpp"
#include "platform/owners.hpp"
#include "platform/xmlnode.hpp"

#include <cstring>

using namespace qandor;
using namespace qandor::fuzz;

namespace {

struct Kind {
    guint32 type;
    RecordKind record;
    void (*use)(gpointer read, RecordKind record);
};

template <class Record> struct Uses {
    GArray *(*write)(const Record *);
    gchar *(*write_xml)(const Record *);
    Record *(*read_xml)(const gchar *);
    void (*free)(Record *);
};

// Texts that XML can say may be too long for a record, which the checker then finds.
bool is_well_formed(RecordKind kind, const std::string &bytes)
{
    return !check_record(kind, reinterpret_cast<const guint8 *>(bytes.data()), bytes.size());
}

template <class Record> void use(gpointer read, RecordKind kind, const Uses<Record> &uses)
{
    std::unique_ptr<Record, void (*)(Record *)> record(static_cast<Record *>(read), uses.free);
    if (!is_well_formed(kind, take(uses.write(record.get()))))
        return;
    TextOwner xml(uses.write_xml(record.get()));
    std::unique_ptr<Record, void (*)(Record *)> again(uses.read_xml(xml.get()), uses.free);
    must(again != nullptr, "what was written is read");
    TextOwner same(uses.write_xml(again.get()));
    must(std::strcmp(xml.get(), same.get()) == 0, "what was read is written as it was");
}

void use_declaration(gpointer read, RecordKind kind)
{
    use<event_declaration>(read, kind,
                           {event_declaration_serialize, event_declaration_serialize_xml,
                            event_declaration_deserialize_xml, event_declaration_free});
}

void use_expression(gpointer read, RecordKind kind)
{
    use<subscribe_expression>(read, kind,
                              {subscribe_expression_serialize, subscribe_expression_serialize_xml,
                               subscribe_expression_deserialize_xml, subscribe_expression_free});
}

void use_state(gpointer read, RecordKind kind)
{
    use<property_state>(read, kind,
                        {property_state_serialize, property_state_serialize_xml,
                         property_state_deserialize_xml, property_state_free});
}

constexpr Kind kinds[] = {
    {IT_EVENT_DECLARATION, RecordKind::EventDeclaration, use_declaration},
    {IT_SUBSCRIBE_EXPRESSION, RecordKind::SubscribeExpression, use_expression},
    {IT_PROPERTY_STATE, RecordKind::PropertyState, use_state},
};

// Tags belong to events and declarations; another record that has some is a fatal mistake.
bool is_mistagged(const char *text, guint32 type)
{
    if (type == IT_EVENT_DECLARATION)
        return false;
    XmlTreeOwner root(xmlnode_parse_string(text));
    for (GList *child = root ? root->children : nullptr; child; child = child->next)
        if (std::strcmp(static_cast<xmlnode *>(child->data)->name, "tag") == 0)
            return true;
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    if (size == 0 || bytes[0] - '0' < 0 || static_cast<gsize>(bytes[0] - '0') >= std::size(kinds))
        return -1; // no seed worth keeping
    const Kind &kind = kinds[bytes[0] - '0'];
    std::string text(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    if (is_mistagged(text.c_str(), kind.type))
        return 0;
    if (gpointer read = event_utils_deserialize_xml(text.c_str(), kind.type))
        kind.use(read, kind.record);
    return 0;
}
