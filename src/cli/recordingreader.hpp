// SPDX-License-Identifier: LGPL-2.1-or-later

// Reads a recording as far as it is whole. What it hands out has been checked: the library can read
// every record.
#pragma once

#include "cli/owners.hpp"
#include "cli/recording.hpp"

#include <qandor/qandor.hpp>

#include <cstdio>

namespace qandor::cli {

using File = Owned<std::FILE, std::fclose>;

// What is wrong with a recording, and the byte of the file at which it goes wrong.
struct RecordingFault {
    guint64 offset;
    std::string what;
};

class RecordingReader {
public:
    // Reads the head: a fault when it is none.
    explicit RecordingReader(File file);

    // The next entry, kinds of later versions left out; nothing at the end and at a fault.
    std::optional<RecordingEntry> next();
    // Goes back to the first entry of a recording with a head; false where a file cannot.
    bool rewind();

    // Why there are no more entries, when it is not the end of the file.
    const std::optional<RecordingFault> &fault() const { return fault_; }
    // How many entries have been read.
    guint64 count() const { return count_; }
    // When it began, in microseconds since 1970.
    gint64 started() const { return started_; }

private:
    void read_header();
    // Reads more bytes; whether there were so many.
    bool read(std::string &bytes, std::size_t size);
    bool read_body(std::string &bytes);
    bool fail(guint64 offset, std::string what);
    bool check(const RecordingEntry &entry);

    File file_;
    guint64 offset_ = 0; // of the next entry
    guint64 count_ = 0;
    gint64 started_ = 0;
    std::optional<RecordingFault> fault_;
};

// What entries hold.
Event event_of(const RecordingEntry &entry);
Declaration declaration_of(const RecordingEntry &entry);

} // namespace qandor::cli
