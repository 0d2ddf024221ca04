// SPDX-License-Identifier: LGPL-2.1-or-later

// What the switch tells its peers.
#pragma once

#include <qandor/notification.h>

#include <glib.h>

namespace qandor {

struct Declaration;
struct PeerAddress;
struct Subscription;

class Post {
public:
    virtual ~Post() = default;

    // The user who causes what is told from now on.
    virtual void set_cause(guint32 uid) = 0;
    // Whether the peer may be told more now; otherwise the cause waits.
    virtual bool has_room(const PeerAddress &peer) const = 0;

    virtual void global_declare_id(const Declaration &declaration) = 0;
    virtual void declaration_complete(const Declaration &declaration) = 0;
    virtual void subscribe(const Declaration &declaration, const Subscription &subscription) = 0;
    virtual void unsubscribe(const Declaration &declaration, guint32 subscription_id) = 0;
    virtual void refresh_property(const Declaration &declaration, guint32 subscription_id) = 0;
    virtual void notify(const Subscription &subscription, const Declaration &declaration,
                        notification_type type) = 0;
};

} // namespace qandor
