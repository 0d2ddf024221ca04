// SPDX-License-Identifier: LGPL-2.1-or-later

// Recordings: what is read of one is what was written, twice the same, and can be sent again. The
// first byte says whether checksums are made right, which no fuzzer guesses.

#include "fuzz/target.hpp"

#include "cli/recordeddeclarations.hpp"
#include "cli/recordingreader.hpp"

using namespace qandor;
using namespace qandor::cli;
using namespace qandor::fuzz;

namespace {

void mend_checksums(std::string &recording)
{
    for (std::size_t at = recording_header_size;
         at + entry_head_size + checksum_size <= recording.size();) {
        std::size_t size = entry_head_size + number_at(recording, at + 13, 4);
        if (size > recording.size() - at - checksum_size)
            return;
        std::string checksum;
        put_number(checksum, checksum_of(std::string_view(recording).substr(at, size)), 4);
        recording.replace(at + size, checksum_size, checksum);
        at += size + checksum_size;
    }
}

void use(const RecordingEntry &entry, guint64 number, RecordedDeclarations &declarations)
{
    if (entry.kind == EntryKind::Declared)
        declarations.add(declaration_of(entry), number);
    else if (entry.kind == EntryKind::Gone)
        must(declaration_of(entry).c() != nullptr, "what has gone is read");
}

// Whatever an event is said to be of, it fits: it has the same keys.
void find_declaration(const RecordingEntry &entry, guint64 number,
                      const RecordedDeclarations &declarations)
{
    Event event = event_of(entry);
    auto place = declarations.of(event, number);
    if (!place)
        return;
    must(*place < declarations.all().size(), "an event is of a declaration that is there");
    must(declarations.all()[*place].sample().keys().size() == event.keys().size(),
         "an event has the keys of its declaration");
}

std::string read_all(RecordingReader &reader, RecordedDeclarations &declarations)
{
    std::string bytes;
    while (auto entry = reader.next()) {
        use(*entry, reader.count(), declarations);
        bytes += bytes_of(*entry);
    }
    return bytes;
}

void find_all(RecordingReader &reader, const RecordedDeclarations &declarations)
{
    while (auto entry = reader.next())
        if (entry->kind == EntryKind::Event)
            find_declaration(*entry, reader.count(), declarations);
}

void read(std::string &recording)
{
    RecordingReader reader(File(fmemopen(recording.data(), recording.size(), "r")));
    RecordedDeclarations declarations;
    bool has_head = !reader.fault();
    std::string entries = read_all(reader, declarations);
    auto fault = reader.fault();
    guint64 count = reader.count();
    must(entries.size() <= recording.size(), "nothing is read that was not there");
    must(!fault || fault->offset <= recording.size(), "a fault lies in the file");
    if (!has_head)
        return;
    must(reader.rewind(), "a file is read again");
    find_all(reader, declarations);
    must(reader.count() == count, "a file is read again as it was");
    must(reader.fault().has_value() == fault.has_value(), "a fault stays one");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    if (size < 2)
        return -1; // no seed worth keeping
    std::string recording(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    if (bytes[0] == '1')
        mend_checksums(recording);
    read(recording);
    return 0;
}
