// SPDX-License-Identifier: LGPL-2.1-or-later

#include "asker.hpp"

#include "seam.hpp"
#include "support/records.hpp"

#include <qandor/switchbusclient.h>

#include <stdexcept>

namespace qandor::faults {
namespace {

void check(int r)
{
    if (r < 0)
        throw std::runtime_error("the asker cannot use its connection");
}

} // namespace

Asker::Asker()
{
    Aside aside;
    sd_bus *made = nullptr;
    check(sd_bus_open_system(&made));
    bus_.reset(made);
}

Asker::~Asker()
{
    Aside aside;
    bus_.reset();
}

void Asker::ask(const char *who)
{
    Aside aside;
    const char *name = nullptr;
    check(sd_bus_get_unique_name(bus_.get(), &name));
    name_ = name;
    test::Owned<subscribe_expression> expression(subscribe_expression_new());
    subscribe_expression_add_key_value(expression.get(), "who", who);
    test::Owned<GArray> bytes(subscribe_expression_serialize(expression.get()));
    sd_bus_message *made = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &made, DBUS_SERVICE_SWITCH, DBUS_OBJECT_SWITCH,
                                         DBUS_INTERFACE_SWITCH_CONSUMER, "GetPropertyState"));
    BusMessageOwner question(made);
    check(sd_bus_message_append_array(made, 'y', bytes->data, bytes->len));
    is_answered_ = false;
    check(sd_bus_call_async(bus_.get(), nullptr, made, receive, this, 60 * G_USEC_PER_SEC));
}

void Asker::step()
{
    Aside aside;
    while (sd_bus_process(bus_.get(), nullptr) > 0) {
    }
}

int Asker::receive(sd_bus_message *, void *asker, sd_bus_error *)
{
    static_cast<Asker *>(asker)->is_answered_ = true;
    return 0;
}

} // namespace qandor::faults
