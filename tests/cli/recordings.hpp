// SPDX-License-Identifier: LGPL-2.1-or-later

// Recordings written and read a second time, as docs/recording-format.md has them.
#pragma once

#include "samplerecords.hpp"

#include <fstream>
#include <sstream>

namespace qandor::test {

inline std::string little_endian(guint64 number, int size)
{
    std::string bytes;
    for (int i = 0; i < size; ++i, number /= 256)
        bytes += static_cast<char>(number % 256);
    return bytes;
}

inline guint64 little_endian_at(const std::string &bytes, std::size_t place, std::size_t size)
{
    guint64 number = 0;
    for (std::size_t i = size; i > 0; --i)
        number = number * 256 + static_cast<guint8>(bytes.at(place + i - 1));
    return number;
}

inline guint32 crc32(const std::string &bytes)
{
    guint32 rest = 0xffffffff;
    for (char byte : bytes) {
        rest ^= static_cast<guint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            rest = rest % 2 ? rest / 2 ^ 0xedb88320 : rest / 2;
    }
    return rest ^ 0xffffffff;
}

inline std::string recording_head()
{
    return "\x89QREC\r\n\x1a" + little_endian(1, 4) + little_endian(0, 8);
}

inline std::string entry(guint8 kind, guint64 time, const std::string &record)
{
    std::string bytes = little_endian(kind, 1) + little_endian(time, 8) +
                        little_endian(G_MAXUINT32, 4) + little_endian(record.size(), 4) + record;
    return bytes + little_endian(crc32(bytes), 4);
}

inline std::string with_global_id(std::string declaration, guint32 id)
{
    return declaration.replace(9, 4, little_endian(id, 4));
}

inline std::string declared_entry(guint32 id)
{
    return entry(1, 0, with_global_id(declaration_bytes(), id));
}

inline std::string event_entry(guint32 id, guint64 time, double load = 0.5)
{
    Event event = sample_declaration().sample();
    event["load"] = load;
    event_set_global_id(event.c(), id);
    return entry(3, time, bytes_of_record(event_serialize(event.c())));
}

inline std::string property_bytes()
{
    Declaration property = Declaration().topic("Device", "State").key<std::string>("state");
    property.property("state");
    return bytes_of_record(event_declaration_serialize(property.c()));
}

inline std::string content_of(const std::string &path)
{
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

struct ReadEntry {
    guint64 kind, user;
    std::string record;
};

// The whole entries.
inline std::vector<ReadEntry> entries_of(const std::string &recording)
{
    std::vector<ReadEntry> entries;
    for (std::size_t at = 20; at + 21 <= recording.size();) {
        std::size_t size = little_endian_at(recording, at + 13, 4);
        if (at + 21 + size > recording.size())
            break;
        entries.push_back({little_endian_at(recording, at, 1),
                           little_endian_at(recording, at + 9, 4),
                           recording.substr(at + 17, size)});
        at += 21 + size;
    }
    return entries;
}

inline std::vector<Event> events_of(const std::string &recording)
{
    std::vector<Event> events;
    for (const ReadEntry &entry : entries_of(recording)) {
        if (entry.kind != 3)
            continue;
        Owned<GArray> array(serialize_create_array());
        serialize_blob(array.get(), entry.record.data(), static_cast<guint32>(entry.record.size()));
        events.emplace_back(event_deserialize(array.get()));
    }
    return events;
}

inline std::vector<guint64> users_of(const std::string &recording)
{
    std::vector<guint64> users;
    for (const ReadEntry &entry : entries_of(recording))
        if (entry.kind == 3)
            users.push_back(entry.user);
    return users;
}

// Whether so many events come to be in the file.
inline bool wait_for_events(const std::string &path, std::size_t count)
{
    for (int tries = 0; tries < 100000; ++tries)
        if (events_of(content_of(path)).size() >= count)
            return true;
    return false;
}

// The bytes under "An example" on the page.
inline std::string example_of_page()
{
    std::istringstream page(content_of(QANDOR_RECORDING_PAGE));
    std::string bytes, line;
    while (std::getline(page, line) && line != "## An example")
        ;
    while (std::getline(page, line)) {
        std::istringstream words(line.starts_with("    ") ? line : "");
        for (std::string word; words >> word && word.size() == 2 && g_ascii_isxdigit(word[0]) &&
                               g_ascii_isxdigit(word[1]);)
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
    return bytes;
}

} // namespace qandor::test
