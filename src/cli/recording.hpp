// SPDX-License-Identifier: LGPL-2.1-or-later

// Recordings of events: what a file of them is made of. docs/recording-format.md describes it.
#pragma once

#include <glib.h>

#include <optional>
#include <string>
#include <string_view>

namespace qandor::cli {

enum class EntryKind : guint8 { Declared = 1, Gone = 2, Event = 3 };

struct RecordingEntry {
    EntryKind kind = EntryKind::Event;
    guint64 time = 0; // microseconds since the recording began
    std::optional<guint32> user;
    std::string record;
};

inline constexpr guint32 recording_version = 1;
inline constexpr std::string_view recording_magic = "\x89QREC\r\n\x1a";
inline constexpr std::size_t recording_header_size = 20;
inline constexpr std::size_t entry_head_size = 17;
inline constexpr std::size_t checksum_size = 4;
inline constexpr std::size_t longest_record = 32 << 20;

// Integers as they stand in a recording.
void put_number(std::string &bytes, guint64 number, int size);
guint64 number_at(std::string_view bytes, std::size_t place, int size);

// What a recording that began at a time, in microseconds since 1970, begins with.
std::string recording_header(gint64 started);

// An entry with its head and its checksum.
std::string bytes_of(const RecordingEntry &entry);

guint32 checksum_of(std::string_view bytes);

} // namespace qandor::cli
