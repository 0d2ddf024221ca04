// SPDX-License-Identifier: LGPL-2.1-or-later

// Sends the events of a recording in their order and at their pace.
#pragma once

#include "cli/mainloop.hpp"
#include "cli/recordeddeclarations.hpp"
#include "cli/recordingreader.hpp"

namespace qandor::cli {

class Replayer {
public:
    // A speed of 0 is as fast as it goes.
    Replayer(MainLoop &loop, EventProducer &producer, const RecordedDeclarations &declarations,
             double speed);

    // Declares everything and sends what the reader has up to an entry, or until interrupted.
    void run(RecordingReader &reader, guint64 entries);

    guint64 sent() const { return sent_; }
    // How many events had no declaration, by the id of the one that they are of.
    const std::map<guint32, guint64> &left_out() const { return left_out_; }

private:
    void go_on();
    void wait_for(const RecordingEntry &entry, Event event, std::size_t place);
    void wait();
    void send();
    double seconds_left() const;
    static void sent(guint32 local_id, ::event *event, gpointer self, GError *error);

    MainLoop &loop_;
    EventProducer &producer_;
    const RecordedDeclarations &declarations_;
    double speed_;

    bool is_over_ = false;
    std::vector<Publication> publications_; // of all the declarations, in the same order
    RecordingReader *reader_ = nullptr;
    guint64 entries_ = 0;
    guint64 sent_ = 0;
    std::map<guint32, guint64> left_out_;
    std::optional<Event> next_;
    gint64 due_ = 0; // on the clock that is never set
    std::optional<guint64> first_time_;
    gint64 began_ = 0;
};

} // namespace qandor::cli
