// SPDX-License-Identifier: LGPL-2.1-or-later

// The switch's calls to its peers, which go out through the outbox. They ask for no answer: a slow
// peer takes no place at the bus and holds nobody up. What waits shares the books' records.
#pragma once

#include "switch/book.hpp"
#include "switch/outbox.hpp"

#include <systemd/sd-bus.h>

#include <memory>
#include <string_view>

namespace qandor {

class BusPost : public Post {
public:
    BusPost(sd_bus *bus, Outbox &outbox) : bus_(bus), outbox_(outbox) {}

    void set_cause(guint32 uid) override { outbox_.set_cause(uid); }
    bool has_room(const PeerAddress &peer) const override { return outbox_.has_room(peer.name); }

    void global_declare_id(const Declaration &declaration) override;
    void declaration_complete(const Declaration &declaration) override;
    void subscribe(const Declaration &declaration, const Subscription &subscription) override;
    void unsubscribe(const Declaration &declaration, guint32 subscription_id) override;
    void refresh_property(const Declaration &declaration, guint32 subscription_id) override;
    void notify(const Subscription &subscription, const Declaration &declaration,
                notification_type type) override;

    // A Subscribe call to a declaration's producer, ready to be sent.
    static BusMessageOwner new_subscribe_call(sd_bus *bus, const PeerAddress &producer,
                                              std::string_view expression, guint32 local_id);

private:
    template <class... Arguments>
    void call_producer(const Declaration &declaration, const char *member, const char *types,
                       Arguments... arguments);

    sd_bus *bus_;
    Outbox &outbox_;
};

} // namespace qandor
