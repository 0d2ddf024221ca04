// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordingreader.hpp"

#include "cli/recordbytes.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qandor::cli {
namespace {

bool is_known(EntryKind kind)
{
    return kind == EntryKind::Declared || kind == EntryKind::Gone || kind == EntryKind::Event;
}

RecordKind record_kind(EntryKind kind)
{
    return kind == EntryKind::Event ? RecordKind::Event : RecordKind::EventDeclaration;
}

RecordingEntry entry_of(std::string_view bytes)
{
    RecordingEntry entry;
    entry.kind = static_cast<EntryKind>(bytes[0]);
    entry.time = number_at(bytes, 1, 8);
    auto user = static_cast<guint32>(number_at(bytes, 9, 4));
    entry.user = user == G_MAXUINT32 ? std::nullopt : std::optional(user);
    entry.record = bytes.substr(entry_head_size, bytes.size() - entry_head_size - checksum_size);
    return entry;
}

} // namespace

RecordingReader::RecordingReader(File file) : file_(std::move(file))
{
    read_header();
}

void RecordingReader::read_header()
{
    std::string bytes;
    bool is_whole = read(bytes, recording_header_size);
    if (!bytes.starts_with(recording_magic)) {
        fail(0, "this is no recording");
        return;
    }
    if (!is_whole) {
        fail(bytes.size(), "the head of the recording is cut off");
        return;
    }
    guint64 version = number_at(bytes, recording_magic.size(), 4);
    if (version != recording_version) {
        fail(recording_magic.size(), "this is a recording of version " + std::to_string(version) +
                                         ", and not of version " +
                                         std::to_string(recording_version));
        return;
    }
    started_ = static_cast<gint64>(number_at(bytes, recording_magic.size() + 4, 8));
    offset_ = recording_header_size;
}

std::optional<RecordingEntry> RecordingReader::next()
{
    std::string bytes;
    while (!fault_ && read_body(bytes)) {
        RecordingEntry entry = entry_of(bytes);
        if (is_known(entry.kind) && !check(entry))
            return std::nullopt;
        offset_ += bytes.size();
        ++count_;
        if (is_known(entry.kind))
            return entry;
        bytes.clear();
    }
    return std::nullopt;
}

bool RecordingReader::rewind()
{
    if (std::fseek(file_.get(), recording_header_size, SEEK_SET) < 0)
        return false;
    offset_ = recording_header_size;
    count_ = 0;
    fault_.reset();
    return true;
}

// In parts, since a damaged size is not worth so much memory.
bool RecordingReader::read(std::string &bytes, std::size_t size)
{
    constexpr std::size_t part = 65536;
    for (std::size_t left = size; left > 0;) {
        std::size_t wanted = std::min(left, part), before = bytes.size();
        bytes.resize(before + wanted);
        std::size_t count = std::fread(bytes.data() + before, 1, wanted, file_.get());
        bytes.resize(before + count);
        if (count < wanted)
            return false;
        left -= count;
    }
    return true;
}

bool RecordingReader::read_body(std::string &bytes)
{
    if (!read(bytes, entry_head_size)) {
        if (std::ferror(file_.get()))
            return fail(offset_, std::string("the file cannot be read: ") + std::strerror(errno));
        return bytes.empty() ? false : fail(offset_, "the entry that begins here is cut off");
    }
    std::size_t size = number_at(bytes, 13, 4);
    if (size > longest_record)
        return fail(offset_ + 13, "an entry is said to have " + std::to_string(size) +
                                      " bytes, which no record has");
    if (!read(bytes, size + checksum_size))
        return fail(offset_, "the entry that begins here is cut off");
    std::size_t end = entry_head_size + size;
    if (number_at(bytes, end, 4) != checksum_of(std::string_view(bytes).substr(0, end)))
        return fail(offset_, "the entry that begins here is damaged: its checksum is another");
    return true;
}

bool RecordingReader::check(const RecordingEntry &entry)
{
    auto malformation = malformation_of(record_kind(entry.kind), entry.record);
    return !malformation || fail(offset_ + entry_head_size + malformation->offset,
                                 "the record of an entry is malformed: " + malformation->what);
}

bool RecordingReader::fail(guint64 offset, std::string what)
{
    fault_ = {offset, std::move(what)};
    return false;
}

Event event_of(const RecordingEntry &entry)
{
    return std::get<Event>(read_checked(RecordKind::Event, entry.record));
}

Declaration declaration_of(const RecordingEntry &entry)
{
    return std::get<Declaration>(read_checked(RecordKind::EventDeclaration, entry.record));
}

} // namespace qandor::cli
