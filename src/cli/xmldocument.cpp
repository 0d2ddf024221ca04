// SPDX-License-Identifier: LGPL-2.1-or-later

#include "cli/xmldocument.hpp"

#include "cli/owners.hpp"

#include <expat.h>

#include <optional>

namespace qandor::cli {
namespace {

// What the library's reader takes at most.
constexpr std::size_t most_bytes = 1 << 20;
constexpr std::size_t most_depth = 256;

using Parser = Owned<std::remove_pointer_t<XML_Parser>, XML_ParserFree>;

class Builder {
public:
    explicit Builder(XML_Parser parser) : parser_(parser)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, begin, end);
        XML_SetCharacterDataHandler(parser, text);
        XML_SetStartDoctypeDeclHandler(parser, refuse_doctype);
    }

    std::variant<XmlElement, XmlFault> parse(std::string_view document)
    {
        auto status = XML_Parse(parser_, document.data(), static_cast<int>(document.size()), true);
        if (refused_)
            return *refused_;
        if (status != XML_STATUS_OK)
            return XmlFault{place(), XML_ErrorString(XML_GetErrorCode(parser_))};
        return std::move(root_.children[0]);
    }

private:
    static Builder &self(void *data) { return *static_cast<Builder *>(data); }

    static void begin(void *data, const XML_Char *name, const XML_Char **attributes)
    {
        Builder &builder = self(data);
        if (builder.open_.size() > most_depth)
            return builder.refuse("elements nest more than 256 deep");
        XmlElement element{name, builder.place(), {}, {}};
        for (; *attributes; attributes += 2)
            element.attributes[attributes[0]] = attributes[1];
        XmlElement &parent = *builder.open_.back();
        parent.children.push_back(std::move(element));
        builder.open_.push_back(&parent.children.back());
    }
    static void end(void *data, const XML_Char *) { self(data).open_.pop_back(); }
    static void text(void *data, const XML_Char *characters, int length)
    {
        std::string_view text(characters, static_cast<std::size_t>(length));
        if (text.find_first_not_of(" \t\r\n") != std::string_view::npos)
            self(data).open_.back()->has_text = true;
    }
    static void refuse_doctype(void *data, const XML_Char *, const XML_Char *, const XML_Char *,
                               int)
    {
        self(data).refuse("document type declarations are refused");
    }

    void refuse(const char *what)
    {
        if (!refused_)
            refused_ = XmlFault{place(), what};
        XML_StopParser(parser_, XML_FALSE);
    }
    XmlPlace place() const
    {
        return {XML_GetCurrentLineNumber(parser_), XML_GetCurrentColumnNumber(parser_) + 1};
    }

    XML_Parser parser_;
    XmlElement root_;
    // Children are only added to the last of these, so that the others stay where they are.
    std::vector<XmlElement *> open_{&root_};
    std::optional<XmlFault> refused_;
};

} // namespace

std::string XmlElement::attribute(const std::string &wanted) const
{
    auto found = attributes.find(wanted);
    return found == attributes.end() ? "" : found->second;
}

bool XmlElement::is_true(const std::string &wanted) const
{
    return g_ascii_strcasecmp(attribute(wanted).c_str(), "true") == 0;
}

std::variant<XmlElement, XmlFault> parse_xml(std::string_view text)
{
    if (text.size() > most_bytes)
        return XmlFault{{}, "a document is at most 1 MiB long"};
    Parser parser(XML_ParserCreate(nullptr));
    return Builder(parser.get()).parse(text);
}

} // namespace qandor::cli
