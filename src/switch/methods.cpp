// SPDX-License-Identifier: LGPL-2.1-or-later

#include "switch/methods.hpp"

#include <glib.h>

#include <set>

namespace qandor {
namespace {

constexpr const char *peer_interface = "org.freedesktop.DBus.Peer";
constexpr const char *introspectable = "org.freedesktop.DBus.Introspectable";
constexpr const char *properties_interface = "org.freedesktop.DBus.Properties";

template <class Look> void for_each(const sd_bus_vtable *vtable, int type, Look look)
{
    for (const sd_bus_vtable *at = vtable; at->type != _SD_BUS_VTABLE_END; ++at)
        if (static_cast<int>(at->type) == type)
            look(at);
}

const sd_bus_vtable *find_method(const sd_bus_vtable *vtable, const char *member)
{
    const sd_bus_vtable *found = nullptr;
    for_each(vtable, _SD_BUS_VTABLE_METHOD, [&](const sd_bus_vtable *method) {
        if (g_str_equal(method->x.method.member, member))
            found = method;
    });
    return found;
}

// The single complete types of a signature: "ssay" is s, s and ay.
std::vector<std::string> types_of(const char *signature)
{
    std::vector<std::string> types;
    int depth = 0;
    bool goes_on = false;
    for (const char *at = signature ? signature : ""; *at; ++at) {
        if (!goes_on)
            types.emplace_back();
        types.back() += *at;
        depth += (*at == '(' || *at == '{') - (*at == ')' || *at == '}');
        goes_on = depth > 0 || *at == 'a';
    }
    return types;
}

void append_arguments(std::string &xml, const char *signature, const char *direction)
{
    for (const std::string &type : types_of(signature))
        xml += "   <arg type=\"" + type + "\" direction=\"" + direction + "\"/>\n";
}

std::string xml_of(const char *interface, const sd_bus_vtable *vtable)
{
    std::string xml = std::string(" <interface name=\"") + interface + "\">\n";
    for_each(vtable, _SD_BUS_VTABLE_METHOD, [&](const sd_bus_vtable *method) {
        xml += std::string("  <method name=\"") + method->x.method.member + "\">\n";
        append_arguments(xml, method->x.method.signature, "in");
        append_arguments(xml, method->x.method.result, "out");
        xml += "  </method>\n";
    });
    for_each(vtable, _SD_BUS_VTABLE_PROPERTY, [&](const sd_bus_vtable *property) {
        xml += std::string("  <property name=\"") + property->x.property.member + "\" type=\"" +
               property->x.property.signature + "\" access=\"read\"/>\n";
    });
    return xml + " </interface>\n";
}

// The next part of the path, below a folder; empty for what is not below it.
std::string child_of(const std::string &folder, const std::string &path)
{
    std::string begin = folder == "/" ? folder : folder + "/";
    if (path.rfind(begin, 0) != 0)
        return {};
    return path.substr(begin.size(), path.find('/', begin.size()) - begin.size());
}

} // namespace

bool Methods::has_object(const std::string &path) const
{
    for (const ServedInterface &served : served_)
        if (path == served.object)
            return true;
    return false;
}

std::variant<sd_bus_message_handler_t, CallFault> Methods::find(sd_bus_message *call) const
{
    const std::string path = sd_bus_message_get_path(call);
    const char *interface = sd_bus_message_get_interface(call);
    const char *member = sd_bus_message_get_member(call);
    std::vector<ServedInterface> here = {{path.c_str(), peer_interface, peer_vtable},
                                         {path.c_str(), introspectable, introspectable_vtable}};
    if (has_object(path)) {
        here.push_back({path.c_str(), properties_interface, properties_vtable});
        here.insert(here.end(), served_.begin(), served_.end());
    } else if (introspect(path).empty()) {
        return CallFault{SD_BUS_ERROR_UNKNOWN_OBJECT, "Unknown object " + path};
    }
    for (const ServedInterface &served : here) {
        if (path != served.object || (interface && !g_str_equal(interface, served.name)))
            continue;
        const sd_bus_vtable *method = find_method(served.vtable, member);
        if (!method)
            continue;
        if (sd_bus_message_has_signature(call, method->x.method.signature) > 0)
            return method->x.method.handler;
        return CallFault{SD_BUS_ERROR_INVALID_ARGS,
                         std::string("Invalid arguments: expected '") + method->x.method.signature +
                             "', got '" + sd_bus_message_get_signature(call, 1) + "'"};
    }
    return CallFault{SD_BUS_ERROR_UNKNOWN_METHOD, std::string("Unknown method ") + member};
}

std::string Methods::introspect(const std::string &path) const
{
    std::string xml;
    std::set<std::string> children;
    for (const ServedInterface &served : served_) {
        if (path == served.object)
            xml += xml_of(served.name, served.vtable);
        else if (std::string child = child_of(path, served.object); !child.empty())
            children.insert(child);
    }
    if (xml.empty() && children.empty())
        return {};
    if (!xml.empty())
        xml = xml_of(properties_interface, properties_vtable) + xml;
    for (const std::string &child : children)
        xml += " <node name=\"" + child + "\"/>\n";
    return "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
           "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n<node>\n" +
           xml_of(peer_interface, peer_vtable) + xml_of(introspectable, introspectable_vtable) +
           xml + "</node>\n";
}

const sd_bus_vtable *Methods::find_property(const char *object, const char *interface,
                                            const char *name) const
{
    for (const sd_bus_vtable *property : properties(object, interface))
        if (g_str_equal(property->x.property.member, name))
            return property;
    return nullptr;
}

std::vector<const sd_bus_vtable *> Methods::properties(const char *object,
                                                       const char *interface) const
{
    std::vector<const sd_bus_vtable *> found;
    for (const ServedInterface &served : served_)
        if (g_str_equal(object, served.object) &&
            (!*interface || g_str_equal(interface, served.name)))
            for_each(served.vtable, _SD_BUS_VTABLE_PROPERTY,
                     [&](const sd_bus_vtable *property) { found.push_back(property); });
    return found;
}

} // namespace qandor
