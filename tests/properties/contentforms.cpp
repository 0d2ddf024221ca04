// SPDX-License-Identifier: LGPL-2.1-or-later

// The forms of an inspectable that are not for reading back one by one: all follow the order in
// which it is written.

#include "properties/content.hpp"

#include "platform/xmlnode.hpp"
#include "properties/logged.hpp"
#include "properties/plainviews.hpp"
#include "support/recordkinds.hpp"

namespace qandor::test {
namespace {

std::vector<std::string> strings_of(const GList *list)
{
    std::vector<std::string> strings;
    for (; list; list = list->next)
        strings.emplace_back(static_cast<const char *>(list->data));
    return strings;
}

PlainRaw view_of(const key_value_raw *raw)
{
    return {maybe(raw->key),        maybe(raw->value),
            maybe(raw->name_space), maybe(raw->complex_type_name),
            raw->negated,           strings_of(raw->tags)};
}

void check_raw(const inspectable *real, const PlainInspectable &plain)
{
    std::vector<std::vector<PlainRaw>> views;
    GList *all = inspectable_get_raw(real);
    for (const GList *list = all; list; list = list->next) {
        std::vector<PlainRaw> &view = views.emplace_back();
        for (auto *one = static_cast<const GList *>(list->data); one; one = one->next)
            view.push_back(view_of(static_cast<const key_value_raw *>(one->data)));
    }
    inspectable_free_raw(all);
    require(views == raw(plain), "plain view");
}

void check_xml(const inspectable *real, PlainInspectable plain)
{
    XmlTreeOwner tree(inspectable_serialize_xml(real));
    tree->name = g_strdup("content");
    Owned<gchar> text(xmlnode_get_xml(tree.get()));
    XmlTreeOwner parsed(xmlnode_parse_string(text.get()));
    require(parsed != nullptr, std::string("cannot be parsed: ") + text.get());
    plain.internal = 0;
    // Bytes tell the order of buckets, too.
    require(to_bytes(from_xml(parsed.get(), "content", plain.type)) == to_bytes(plain),
            std::string("XML: ") + text.get());
}

// Object tags are refused, fatally, where they may not stand.
bool may_be_read(const PlainInspectable &plain, int type)
{
    return plain.tags.empty() || type == Declaration || type == Event;
}

void check_reading_xml(const inspectable *real, const PlainInspectable &plain, int type)
{
    if (!may_be_read(plain, type))
        return;
    XmlTreeOwner tree(inspectable_serialize_xml(real));
    tree->name = g_strdup("content");
    Owned<inspectable> read;
    auto its_type = static_cast<guint32>(type);
    if (is_readable_from_xml(plain, type)) {
        read.reset(inspectable_deserialize_xml(tree.get(), its_type));
        require(read != nullptr, "XML is not read");
        check_reads(read.get(), read_from_xml(plain, type));
        return;
    }
    read.reset(expecting(G_LOG_LEVEL_WARNING,
                         "Only subscribe expressions support the OR statement.",
                         [&] { return inspectable_deserialize_xml(tree.get(), its_type); }));
    require(!read, "XML of several alternatives is read as another type");
}

} // namespace

void check_forms(const inspectable *real)
{
    PlainInspectable plain = from_bytes<PlainInspectable>(written(real));
    require_same(lines_of([real] { inspectable_print(real); }), printed(plain), "printed");
    check_raw(real, plain);
    check_xml(real, plain);
    for (int type : {Declaration, Event, Expression, State})
        check_reading_xml(real, plain, type);
}

} // namespace qandor::test
