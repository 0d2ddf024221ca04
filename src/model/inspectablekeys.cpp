// SPDX-License-Identifier: LGPL-2.1-or-later

// Reading and editing the key-values of an inspectable by key.

#include "model/inspectable.hpp"

#include "model/valuetypes.hpp"
#include "platform/check.hpp"

using namespace qandor;

namespace {

const gchar *attribute_of(const key_value *key_value, Attribute which)
{
    return key_value ? key_value->attribute(which).data() : nullptr;
}

bool set_attribute(key_value *key_value, Attribute which, const gchar *text)
{
    if (!key_value)
        return false;
    key_value->set_attribute(which, text ? text : "");
    return true;
}

} // namespace

key_value *inspectable_get_key_value(inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key != NULL);
    return inspect->find(key);
}

const gchar *inspectable_get_value(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key != NULL);
    const key_value *key_value = inspect->find(key);
    return key_value ? key_value->value.c_str() : nullptr;
}

const gchar *inspectable_get_name_space(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key != NULL);
    return attribute_of(inspect->find(key), Attribute::NameSpace);
}

const gchar *inspectable_get_complex_type_name(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key != NULL);
    return attribute_of(inspect->find(key), Attribute::ComplexTypeName);
}

const gchar *inspectable_get_value_user_string(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK_TYPE_IS_VALID(inspect);
    CHECK(key != NULL);
    return attribute_of(inspect->find(key), Attribute::ValueUserString);
}

const gchar *inspectable_get_key_nice_name(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    CHECK(key != NULL);
    return attribute_of(inspect->find(key), Attribute::KeyNiceName);
}

const gchar *inspectable_get_value_nice_name(const inspectable *inspect, const gchar *key)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT);
    CHECK(key != NULL);
    return attribute_of(inspect->find(key), Attribute::ValueNiceName);
}

gboolean inspectable_set_value(inspectable *inspect, const gchar *key, gconstpointer value)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION);
    CHECK(key != NULL);
    CHECK(value != NULL);
    key_value *key_value = inspect->find(key);
    if (!key_value || !key_value->value_settable)
        return FALSE;
    CHECK_VALUE_TYPE(key_value->value_type);
    ValueText text(value, key_value->value_type);
    key_value->set_value(text.view());
    return TRUE;
}

gboolean inspectable_set_value_as_string(inspectable *inspect, const gchar *key, const gchar *value)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION);
    CHECK(key != NULL);
    CHECK(value != NULL);
    key_value *key_value = inspect->find(key);
    if (!key_value || !key_value->value_settable)
        return FALSE;
    CHECK_VALUE_TYPE(key_value->value_type);
    key_value->set_value(value);
    return TRUE;
}

gboolean inspectable_set_value_user_string(inspectable *inspect, const gchar *key,
                                           const gchar *text)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION);
    CHECK(key != NULL);
    CHECK(text != NULL);
    return set_attribute(inspect->find(key), Attribute::ValueUserString, text);
}

gboolean inspectable_set_nice_names(inspectable *inspect, const gchar *key,
                                    const gchar *key_nice_name, const gchar *value_nice_name)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION);
    CHECK(key != NULL);
    key_value *key_value = inspect->find(key);
    if (!key_value)
        return FALSE;
    if (key_nice_name)
        key_value->set_attribute(Attribute::KeyNiceName, key_nice_name);
    if (value_nice_name)
        key_value->set_attribute(Attribute::ValueNiceName, value_nice_name);
    return TRUE;
}

gboolean inspectable_set_name_space(inspectable *inspect, const gchar *key, const gchar *text)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_SUBSCRIBE_EXPRESSION ||
          inspect->type == IT_PROPERTY_STATE);
    CHECK(key != NULL);
    return set_attribute(inspect->find(key), Attribute::NameSpace, text);
}

gboolean inspectable_set_complex_type_name(inspectable *inspect, const gchar *key,
                                           const gchar *text)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_SUBSCRIBE_EXPRESSION ||
          inspect->type == IT_PROPERTY_STATE);
    CHECK(key != NULL);
    return set_attribute(inspect->find(key), Attribute::ComplexTypeName, text);
}

gboolean inspectable_set_value_type(inspectable *inspect, const gchar *key, guint32 value_type)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION);
    CHECK(key != NULL);
    CHECK_VALUE_TYPE(value_type);
    key_value *key_value = inspect->find(key);
    CHECK(key_value != NULL);
    key_value->value_type = static_cast<guint8>(value_type);
    return TRUE;
}

gboolean inspectable_add_key_tag(inspectable *inspect, const gchar *key, const gchar *tag)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_PROPERTY_STATE ||
          inspect->type == IT_EVENT);
    CHECK(key != NULL);
    CHECK(tag != NULL);
    key_value *key_value = inspect->find(key);
    if (!key_value)
        return FALSE;
    own_tags(key_value->tags).add(tag);
    return TRUE;
}
