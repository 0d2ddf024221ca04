// SPDX-License-Identifier: LGPL-2.1-or-later

// An installed type that is loaded and filled in, as a registration wants it.

#include "api/eventregistration.hpp"

#include "bus/errors.hpp"
#include "platform/check.hpp"

#include <algorithm>
#include <string_view>
#include <vector>

using namespace qandor;

namespace {

using RawOwner = Owner<GList, inspectable_free_raw>;

// The state of a registered property comes from the pair that is filled in for it.
gboolean keep_state(event *, gpointer)
{
    return TRUE;
}

bool has_state_tag(const key_value_raw &kv)
{
    for (const GList *link = kv.tags; link; link = link->next)
        if (g_str_equal(link->data, PROPERTY_STATE_TAG))
            return true;
    return false;
}

// Gives a key that the type leaves open a value. The key is filed anew and keeps what the type says
// about it.
void fill_in(event_declaration *declaration, const Triple &triple)
{
    inspectable *content = event_declaration_get_inspectable(declaration);
    const gchar *key = triple.key;
    KeyValuePtr former(key_value_copy(inspectable_get_key_value(content, key)));
    auto saved = [&former](Attribute which) { return former->attribute(which).data(); };

    gboolean res = inspectable_add_key_value(content, key, FALSE, nullptr, TRUE, FALSE);
    CHECK(res == TRUE);
    res = inspectable_set_value_type(content, key, triple.value_type);
    CHECK(res == TRUE);
    res = inspectable_set_value_as_string(content, key, triple.text());
    CHECK(res == TRUE);
    res = inspectable_set_nice_names(content, key, saved(Attribute::KeyNiceName),
                                     saved(Attribute::ValueNiceName));
    CHECK(res == TRUE);
    res = inspectable_set_name_space(content, key, saved(Attribute::NameSpace));
    CHECK(res == TRUE);
    res = inspectable_set_complex_type_name(content, key, saved(Attribute::ComplexTypeName));
    CHECK(res == TRUE);
    for (const std::string &tag : tags_of(former->tags))
        event_declaration_add_key_tag(declaration, key, tag.c_str());
}

// An installed type on its way to a declaration. Every step returns whether it went well, and sets
// the error if not.
class Registration {
public:
    Registration(const gchar *type, GError **error) : type_(type), error_(error) {}

    bool load();
    bool find_keys();
    bool fill_in_all(const GList *register_list);
    bool finish();

    event_declaration *release_declaration() { return declaration_.release(); }
    callback_params *release_params() { return params_.release(); }

private:
    bool note_key(const key_value_raw &kv);
    bool take_open_key(std::string_view key);

    const gchar *type_;
    GError **error_;
    DeclarationOwner declaration_;
    CallbackParamsOwner params_;              // of a property
    RawOwner raw_;                            // holds the texts of open_keys_
    std::vector<std::string_view> open_keys_; // those that have no value yet
};

bool Registration::load()
{
    declaration_.reset(event_declaration_new_from_type(type_));
    if (!declaration_)
        set_event_error(error_, EventError::UnknownType,
                        "event_declaration_new_from_type() failed for %s", type_);
    return declaration_ != nullptr;
}

bool Registration::note_key(const key_value_raw &kv)
{
    if (!kv.value)
        open_keys_.emplace_back(kv.key);
    if (!has_state_tag(kv))
        return true;
    if (params_) {
        set_event_error(error_, EventError::SeveralStateKeys,
                        "Got multiple property state tags: key '%s' and '%s' to declaration %s",
                        kv.key, params_->key->c_str(), type_);
        return false;
    }
    params_.reset(callback_params_new(kv.key, nullptr));
    return true;
}

bool Registration::find_keys()
{
    GList *raw_data = inspectable_get_raw(event_declaration_get_inspectable(declaration_.get()));
    raw_.reset(raw_data);
    CHECK(g_list_length(raw_data) == 1);
    for (auto *link = static_cast<GList *>(raw_data->data); link; link = link->next) {
        auto *kv = static_cast<const key_value_raw *>(link->data);
        CHECK(kv->key != NULL);
        if (!note_key(*kv))
            return false;
    }
    return true;
}

bool Registration::take_open_key(std::string_view key)
{
    auto found = std::find(open_keys_.begin(), open_keys_.end(), key);
    if (found == open_keys_.end())
        return false;
    *found = open_keys_.back();
    open_keys_.pop_back();
    return true;
}

// The state key itself stays open.
bool Registration::fill_in_all(const GList *register_list)
{
    while (register_list) {
        Triple triple(register_list);
        if (!take_open_key(triple.key)) {
            set_event_error(error_, EventError::UnknownKey,
                            "Got unknown key '%s' to declaration %s", triple.key, type_);
            return false;
        }
        if (params_ && params_->key == triple.key)
            params_->value = triple.text();
        else
            fill_in(declaration_.get(), triple);
        register_list = triple.next;
    }
    return true;
}

bool Registration::finish()
{
    if (!params_)
        return true;
    if (!open_keys_.empty()) {
        set_event_error(error_, EventError::KeysLeft, "Not all keys were parsed for type %s",
                        type_);
        return false;
    }
    event_declaration_set_property(declaration_.get(), params_->key->c_str(), keep_state, nullptr);
    return true;
}

} // namespace

void event_producer_int_register_list(const char *type, GList *register_list,
                                      event_declaration **declaration, callback_params **params,
                                      GError **error)
{
    RETURN_IF_FAIL(type != NULL);
    CHECK(declaration != NULL && *declaration == NULL);
    CHECK(params != NULL && *params == NULL);
    if (refuse_error_already_set(error))
        return;
    Registration registration(type, error);
    if (!registration.load() || !registration.find_keys() ||
        !registration.fill_in_all(register_list) || !registration.finish())
        return;
    *declaration = registration.release_declaration();
    *params = registration.release_params();
}
