// SPDX-License-Identifier: LGPL-2.1-or-later

// What 'qandor check' finds in a text: every finding stands in it, what is good can be used, and
// what is readable is read without ending the process.

#include "fuzz/target.hpp"

#include "cli/xmlcheck.hpp"
#include "model/checker.hpp"

#include <algorithm>

using namespace qandor;
using namespace qandor::cli;
using namespace qandor::fuzz;

namespace {

void check_place(const Finding &finding, const std::string &text)
{
    auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    // A lone carriage return ends a line for XML, too.
    lines += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\r'));
    must(finding.place.line >= 1 && finding.place.line <= lines, "a finding stands in a line");
    must(finding.place.column >= 1 && finding.place.column <= text.size() + 1,
         "a finding stands in a column");
    must(!finding.what.empty(), "a finding is said");
}

template <class Record>
std::string use(Record *read, GArray *(*write)(const Record *), void (*free)(Record *))
{
    must(read != nullptr, "what is readable is read");
    std::string bytes = take(write(read));
    free(read);
    return bytes;
}

std::string read(XmlKind kind, const char *text)
{
    switch (kind) {
    case XmlKind::Expression:
        return use(subscribe_expression_deserialize_xml(text), subscribe_expression_serialize,
                   subscribe_expression_free);
    case XmlKind::State:
        return use(property_state_deserialize_xml(text), property_state_serialize,
                   property_state_free);
    case XmlKind::Declaration:
        break;
    }
    return use(event_declaration_deserialize_xml(text), event_declaration_serialize,
               event_declaration_free);
}

RecordKind record_kind(XmlKind kind)
{
    return kind == XmlKind::Expression ? RecordKind::SubscribeExpression
           : kind == XmlKind::State    ? RecordKind::PropertyState
                                       : RecordKind::EventDeclaration;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const guint8 *bytes, gsize size)
{
    std::string text(reinterpret_cast<const char *>(bytes), size);
    XmlReport report = check_xml(text);
    for (const Finding &finding : report.findings)
        check_place(finding, text);
    if (!report.is_readable() || text.find('\0') != std::string::npos)
        return 0;
    std::string record = read(*report.kind, text.c_str());
    if (!report.has_errors())
        must(!check_record(record_kind(*report.kind),
                           reinterpret_cast<const guint8 *>(record.data()), record.size()),
             "what is good can be sent");
    return 0;
}
