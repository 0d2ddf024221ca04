// SPDX-License-Identifier: LGPL-2.1-or-later

// Every public read function of an inspectable, held against its plain record.

#include "properties/content.hpp"

#include "support/recordkinds.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace qandor::test {
namespace {

// Every key that the record has in any and-list, and one that it has not.
std::vector<std::string> names_of(const PlainInspectable &plain)
{
    std::vector<std::string> names{"absent"};
    for (const PlainAndList &list : plain.and_lists)
        for (const auto &[key, bucket] : list.keyed)
            names.push_back(key);
    return names;
}

template <class Get>
void require_field(const inspectable *real, const std::string &key, const MaybeText &expected,
                   const Get &get, const char *what)
{
    require_same(maybe(get(real, key.c_str())), expected, what + (" of " + key));
}

MaybeText field(const PlainKeyValue *one, std::string PlainKeyValue::*which)
{
    return one ? MaybeText(one->*which) : std::nullopt;
}

void check_key(inspectable *real, const PlainInspectable &plain, const std::string &key)
{
    const PlainKeyValue *one = find(plain, key);
    require_field(real, key, field(one, &PlainKeyValue::value), inspectable_get_value, "value");
    require_field(real, key, field(one, &PlainKeyValue::name_space), inspectable_get_name_space,
                  "name space");
    require_field(real, key, field(one, &PlainKeyValue::complex_type_name),
                  inspectable_get_complex_type_name, "complex type name");
    require_field(real, key, field(one, &PlainKeyValue::value_user_string),
                  inspectable_get_value_user_string, "user string");
    if (plain.type == Event) {
        require_field(real, key, field(one, &PlainKeyValue::key_nice_name),
                      inspectable_get_key_nice_name, "key nice name");
        require_field(real, key, field(one, &PlainKeyValue::value_nice_name),
                      inspectable_get_value_nice_name, "value nice name");
    }
    const key_value *its = inspectable_get_key_value(real, key.c_str());
    require(!its == !one, "key-value of " + key);
    if (its)
        require(from_bytes<PlainKeyValue>(plain_bytes(write(its).get())) == *one,
                "content of " + key);
}

void check_typed_value(const inspectable *real, guint at, const PlainKeyValue &one)
{
    require_same<long long>(inspectable_get_type_at(real, at), one.value_type,
                            "type of " + one.key);
    double number = std::strtod(one.value.c_str(), nullptr);
    if (one.value_type == VALUE_TYPE_INT) {
        gint result = 0;
        require(inspectable_get_typed_value_at(real, at, &result), "typed value");
        double limited = std::clamp<double>(std::trunc(number), G_MININT32, G_MAXINT32);
        require_same<long long>(result, static_cast<long long>(limited), "number of " + one.key);
    } else if (one.value_type == VALUE_TYPE_DOUBLE) {
        gdouble result = 0;
        require(inspectable_get_typed_value_at(real, at, &result), "typed value");
        require(result == number, "double of " + one.key);
    } else if (one.value_type == VALUE_TYPE_STRING) {
        const gchar *result = nullptr;
        require(inspectable_get_typed_value_at(real, at, &result), "typed value");
        require_same(maybe(result), MaybeText(one.value), "text of " + one.key);
    } else if (one.value == "0" || one.value == "1") { // anything else is fatal
        gboolean result = 2;
        require(inspectable_get_typed_value_at(real, at, &result), "typed value");
        require_same<long long>(result, one.value == "1", "boolean of " + one.key);
    }
}

void check_position(const inspectable *real, const PlainInspectable &plain, guint at)
{
    MaybeText key = maybe(inspectable_get_key_at(real, at));
    require(key.has_value(), "key at " + std::to_string(at));
    const PlainKeyValue *one = find(plain, *key);
    require(one, *key + " has a position, but is not there");
    require_same(maybe(inspectable_get_value_at(real, at)), MaybeText(one->value), "value at");
    require_same(maybe(inspectable_get_name_space_at(real, at)), MaybeText(one->name_space),
                 "name space at");
    require_same(maybe(inspectable_get_complex_type_name_at(real, at)),
                 MaybeText(one->complex_type_name), "complex type name at");
    std::vector<std::string> reversed(one->tags.rbegin(), one->tags.rend());
    require_same(take_strings(inspectable_get_tags_at(real, at)), reversed, "tags at");
    for (const char *tag : {"s", "t", "u", "absent", state_key_tag})
        require_same<long long>(inspectable_has_tag_at(real, at, tag), has(one->tags, tag),
                                "tag at");
    if (plain.type != Event)
        return;
    require_same<long long>(inspectable_get_index(real, key->c_str()), at, "index of " + *key);
    require_same<long long>(inspectable_has_value_at(real, at),
                            !(one->settable && one->value_wildcard), "has value " + *key);
    check_typed_value(real, at, *one);
}

void check_positions(const inspectable *real, const PlainInspectable &plain)
{
    auto count = static_cast<guint>(plain.and_lists.back().keyed.size());
    require_same<long long>(inspectable_get_key_count(real), count, "key count");
    for (guint at = 0; at < count; ++at)
        check_position(real, plain, at);
    for (guint at : {count, count + 1, std::numeric_limits<guint>::max()}) {
        require(!inspectable_get_key_at(real, at) && !inspectable_get_value_at(real, at) &&
                    !inspectable_get_name_space_at(real, at) &&
                    !inspectable_get_complex_type_name_at(real, at) &&
                    !inspectable_get_tags_at(real, at) && !inspectable_has_tag_at(real, at, "s"),
                "past the end");
        if (plain.type == Event)
            require(!inspectable_has_value_at(real, at) && !inspectable_get_type_at(real, at),
                    "past the end");
    }
    if (plain.type == Event)
        require_same<long long>(inspectable_get_index(real, "absent"), -1, "index");
}

void check_tags(const inspectable *real, const PlainInspectable &plain)
{
    std::vector<std::string> reversed(plain.tags.rbegin(), plain.tags.rend());
    require_same(take_strings(inspectable_get_tags(real)), reversed, "tags");
    for (const char *tag : {"s", "t", "u", "absent", state_key_tag}) {
        require_same<long long>(inspectable_has_tag(real, tag), has(plain.tags, tag), "tag");
        if (plain.type != Expression)
            require_same<long long>(inspectable_has_keyvalue_with_tag(real, tag),
                                    has_key_with_tag(plain, tag), std::string("key with ") + tag);
    }
}

} // namespace

PlainBytes plain_bytes(const GArray *array)
{
    const auto *data = reinterpret_cast<const guint8 *>(array->data);
    return PlainBytes(data, data + array->len);
}

PlainBytes written(const inspectable *real)
{
    return plain_bytes(write(real).get());
}

void check_reads(inspectable *real, const PlainInspectable &plain)
{
    require(from_bytes<PlainInspectable>(written(real)) == plain, "bytes");
    require_same<long long>(inspectable_get_internal(real), plain.internal, "internal");
    for (const std::string &key : names_of(plain))
        check_key(real, plain, key);
    check_tags(real, plain);
    if (plain.type == Event || plain.type == State)
        check_positions(real, plain);
    if ((plain.type == Event || plain.type == Declaration) && plain.and_lists.size() == 1)
        require_same<long long>(inspectable_is_complete(real), is_complete(plain), "complete");
}

} // namespace qandor::test
