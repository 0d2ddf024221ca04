// SPDX-License-Identifier: LGPL-2.1-or-later

// The opaque payload of an event or a notification.
#pragma once

#include "model/wire.hpp"

#include <glib.h>

#include <vector>

namespace qandor {

class UserData {
public:
    void set(gconstpointer data, guint32 size)
    {
        const auto *bytes = static_cast<const guint8 *>(data);
        bytes_.assign(bytes, bytes + size);
    }

    // A new copy, or NULL when there is no payload.
    gpointer copy() const
    {
        return bytes_.empty() ? nullptr : g_memdup2(bytes_.data(), bytes_.size());
    }

    // The size travels in 16 bits, all bytes follow: a larger payload is for the caller to refuse.
    wire::Blob blob() const { return {bytes_.data(), static_cast<guint32>(bytes_.size())}; }
    void set(const wire::Blob &blob) { set(blob.data, blob.size); }

private:
    std::vector<guint8> bytes_;
};

} // namespace qandor
