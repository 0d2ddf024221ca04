// SPDX-License-Identifier: LGPL-2.1-or-later

// Parsing XML documents into trees with expat.

#include "platform/xmlnode.hpp"

#include "platform/owners.hpp"

#include <expat.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <vector>

using namespace qandor;

namespace {

using ParserOwner = std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)>;

// Builds the tree as expat goes through the document. Whatever is refused stops the parser.
class TreeBuilder {
public:
    explicit TreeBuilder(XML_Parser parser) : parser_(parser)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, begin_element, end_element);
        XML_SetStartDoctypeDeclHandler(parser, refuse_doctype);
    }

    XmlTreeOwner take_root() { return std::move(root_); }

private:
    static TreeBuilder &self(void *data) { return *static_cast<TreeBuilder *>(data); }

    static void begin_element(void *data, const XML_Char *name, const XML_Char **attributes)
    {
        self(data).open(name, attributes);
    }
    static void end_element(void *data, const XML_Char *) { self(data).close(); }
    static void refuse_doctype(void *data, const XML_Char *, const XML_Char *, const XML_Char *,
                               int)
    {
        self(data).refuse();
    }

    void open(const XML_Char *name, const XML_Char **attributes)
    {
        if (refused_ || path_.size() >= max_depth) {
            refuse();
            return;
        }
        xmlnode *node = xmlnode_create_node();
        node->name = g_strdup(name);
        for (; attributes[0]; attributes += 2)
            xmlnode_add_attribute(node, attributes[0], attributes[1]);
        if (path_.empty())
            root_.reset(node);
        else
            xmlnode_add_child(path_.back(), node);
        path_.push_back(node);
    }

    void close()
    {
        if (!refused_)
            path_.pop_back();
    }

    // Expat may still report the end of the element it stands in.
    void refuse()
    {
        refused_ = true;
        XML_StopParser(parser_, XML_FALSE);
    }

    XML_Parser parser_;
    bool refused_ = false;
    XmlTreeOwner root_;
    std::vector<xmlnode *> path_; // from the root to the element being read
};

XmlTreeOwner parse(const char *text, std::size_t size)
{
    if (size > max_document_size)
        return nullptr;
    ParserOwner parser(XML_ParserCreate(nullptr), XML_ParserFree);
    TreeBuilder builder(parser.get());
    if (XML_Parse(parser.get(), text, static_cast<int>(size), XML_TRUE) != XML_STATUS_OK)
        return nullptr;
    return builder.take_root();
}

// Reads a regular file of at most the size of a document. Anything else must not be waited for.
std::optional<std::string> read_document(const gchar *path)
{
    qandor::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (file.get() < 0 || fstat(file.get(), &status) < 0 || !S_ISREG(status.st_mode))
        return std::nullopt;

    std::string document;
    char buffer[4096];
    ssize_t length;
    while ((length = read(file.get(), buffer, sizeof buffer)) > 0) {
        document.append(buffer, static_cast<std::size_t>(length));
        if (document.size() > max_document_size)
            return std::nullopt;
    }
    if (length < 0)
        return std::nullopt;
    return document;
}

} // namespace

xmlnode *xmlnode_parse_string(const gchar *text)
{
    return parse(text, std::strlen(text)).release();
}

xmlnode *xmlnode_load_file(const gchar *path)
{
    std::optional<std::string> document = read_document(path);
    return document ? parse(document->data(), document->size()).release() : nullptr;
}
