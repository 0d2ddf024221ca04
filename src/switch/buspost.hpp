// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's calls to its peers. They ask for no answer: a slow peer costs no slot at the bus and
// holds nobody up.
#pragma once

#include "switch/book.hpp"

#include <systemd/sd-bus.h>

#include <string_view>

namespace qandor {

class BusPost : public Post {
public:
    explicit BusPost(sd_bus *bus) : bus_(bus) {}

    void global_declare_id(const Declaration &declaration) override;
    void declaration_complete(const Declaration &declaration) override;
    void subscribe(const Declaration &declaration, const Subscription &subscription) override;
    void unsubscribe(const Declaration &declaration, guint32 subscription_id) override;
    void refresh_property(const Declaration &declaration, guint32 subscription_id) override;
    void notify(const Subscription &subscription, const Declaration &declaration,
                notification_type type) override;

    // A Subscribe call to a declaration's producer, ready to be sent.
    static BusMessageOwner new_subscribe_call(sd_bus *bus, const Declaration &declaration,
                                              std::string_view expression);

private:
    void send(BusMessageOwner message);

    sd_bus *bus_;
};

} // namespace qandor
