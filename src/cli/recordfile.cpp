// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/recordfile.hpp"

#include "cli/failure.hpp"
#include "cli/owners.hpp"
#include "cli/recordbytes.hpp"
#include "cli/terminal.hpp"
#include "cli/xmlcheck.hpp"

#include <cerrno>
#include <cstring>
#include <optional>

namespace qandor::cli {
namespace {

constexpr std::size_t most_bytes = 32 << 20;

std::string read_all(std::FILE *file, const std::string &name)
{
    std::string bytes;
    char part[65536];
    for (std::size_t count; (count = std::fread(part, 1, sizeof part, file)) > 0;) {
        bytes.append(part, count);
        if (bytes.size() > most_bytes)
            throw Failure(EX_DATAERR, name + " is longer than any record, which is 32 MiB at most");
    }
    if (std::ferror(file))
        throw Failure(EX_NOINPUT, name + " cannot be read: " + std::strerror(errno));
    return bytes;
}

// The bytes that a text in hexadecimal says; nothing when it is no such text.
std::optional<std::string> from_hex(std::string_view text)
{
    std::string bytes;
    while (!text.empty()) {
        if (g_ascii_isspace(text[0]) || text[0] == ',' || text[0] == ':') {
            text.remove_prefix(1);
            continue;
        }
        if (text.starts_with("0x") || text.starts_with("0X"))
            text.remove_prefix(2);
        if (text.size() < 2 || !g_ascii_isxdigit(text[0]) || !g_ascii_isxdigit(text[1]))
            return std::nullopt;
        bytes +=
            static_cast<char>(g_ascii_xdigit_value(text[0]) * 16 + g_ascii_xdigit_value(text[1]));
        text.remove_prefix(2);
    }
    return bytes.empty() ? std::nullopt : std::optional(bytes);
}

std::string shown(const std::vector<Finding> &findings, const std::string &name)
{
    std::string lines;
    for (const Finding &finding : findings)
        if (finding.severity != Severity::Warning)
            lines += name + ":" + std::to_string(finding.place.line) + ":" +
                     std::to_string(finding.place.column) + ": " + finding.what + "\n";
    return lines;
}

template <class R, class C> Record taken(C *read, const Input &input)
{
    if (!read)
        throw Failure(EX_DATAERR, input.name + " cannot be read");
    return R(read);
}

Record read_xml(const Input &input)
{
    XmlReport report = check_xml(input.bytes);
    if (!report.is_readable())
        throw Failure(EX_DATAERR,
                      input.name + " cannot be read:", shown(report.findings, input.name));
    const char *text = input.bytes.c_str();
    switch (*report.kind) {
    case XmlKind::Expression:
        return taken<ExpressionRecord>(subscribe_expression_deserialize_xml(text), input);
    case XmlKind::State:
        return taken<PropertyState>(property_state_deserialize_xml(text), input);
    case XmlKind::Declaration:
        break;
    }
    return taken<Declaration>(input.path == "-"
                                  ? event_declaration_deserialize_xml(text)
                                  : event_declaration_deserialize_xml_file(input.path.c_str()),
                              input);
}

} // namespace

bool Input::is_xml() const
{
    std::string_view text = bytes;
    if (text.starts_with("\xff\xfe") || text.starts_with("\xfe\xff"))
        return true;
    if (text.starts_with("\xef\xbb\xbf"))
        text.remove_prefix(3);
    std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '<';
}

Input read_input(const std::string &path)
{
    if (path == "-")
        return {"The standard input", path, read_all(stdin, "The standard input")};
    Owned<std::FILE, std::fclose> file(std::fopen(path.c_str(), "re"));
    if (!file)
        throw Failure(EX_NOINPUT, printable(path) + " cannot be read: " + std::strerror(errno));
    return {printable(path), path, read_all(file.get(), printable(path))};
}

Record read_record(const Input &input)
{
    if (input.bytes.empty())
        throw Failure(EX_DATAERR, input.name + " is empty");
    if (input.is_xml())
        return read_xml(input);
    return read_bytes(from_hex(input.bytes).value_or(input.bytes), input.name);
}

Declaration read_declaration(const std::string &path)
{
    Input input = read_input(path);
    Record record = read_record(input);
    if (auto *declaration = std::get_if<Declaration>(&record))
        return std::move(*declaration);
    throw Failure(EX_DATAERR, input.name + " holds no declaration",
                  "'qandor show' shows what it holds.");
}

} // namespace qandor::cli
