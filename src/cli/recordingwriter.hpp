// SPDX-License-Identifier: LGPL-2.1-or-later

// Writes a recording, entry by entry, so that a file whose writer was killed is whole up to there.
#pragma once

#include "cli/recording.hpp"

namespace qandor::cli {

class RecordingWriter {
public:
    // Begins a new file, or with "-" writes to the standard output. A Failure when there is one of
    // the name, unless that is to be written over.
    RecordingWriter(const std::string &path, bool overwrite);
    RecordingWriter(const RecordingWriter &) = delete;
    RecordingWriter &operator=(const RecordingWriter &) = delete;
    ~RecordingWriter();

    // Each is a Failure when the file cannot be written.
    void add(EntryKind kind, std::string record, std::optional<guint32> user = std::nullopt);
    void finish();

private:
    void write(std::string_view bytes) const;
    [[noreturn]] void fail() const;

    std::string name_;
    int file_;
    gint64 started_ = 0; // on the clock that is never set
};

} // namespace qandor::cli
