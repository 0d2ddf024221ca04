// SPDX-License-Identifier: LGPL-2.1-or-later

// Building and freeing trees of topics. A device may have thousands of declarations and strangers
// may nest topics thousands deep, so children are neither searched one by one nor visited by
// functions that call themselves.

#include "query/topictree.hpp"

#include "platform/check.hpp"
#include "platform/log.hpp"
#include "platform/owners.hpp"

#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace qandor {
namespace {

using EventOwner = Owner<event, event_free>;
using DeclarationOwner = Owner<event_declaration, event_declaration_free>;

// Texts that are missing and texts that are empty say the same.
std::string_view view_of(const gchar *text)
{
    return text ? std::string_view(text) : std::string_view();
}

// One of an event's topics, as its key describes it. The texts are the event's.
struct Level {
    guint position;
    std::string_view topic;
    std::string_view nice_name;
    std::string_view name_space;
};

// The event's topic at a depth; nothing below its deepest one.
std::optional<Level> level_at(const event *event, guint depth)
{
    gchar key[sizeof "topic4294967295"];
    g_snprintf(key, sizeof key, "topic%u", depth);
    gint position = event_get_index(event, key);
    std::string_view topic = position < 0 ? "" : view_of(event_get_value(event, key));
    if (topic.empty())
        return std::nullopt;
    return Level{static_cast<guint>(position), topic, view_of(event_get_key_nice_name(event, key)),
                 view_of(event_get_name_space(event, key))};
}

gchar *copy_unless_empty(std::string_view text)
{
    return text.empty() ? nullptr : g_strndup(text.data(), text.size());
}

topic_node_data *data_of(GNode *node)
{
    return static_cast<topic_node_data *>(node->data);
}

GNode *new_node(const Level &level)
{
    auto *info = g_slice_new0(topic_node_data);
    info->topic = copy_unless_empty(level.topic);
    info->name_space = copy_unless_empty(level.name_space);
    info->tags = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
    return g_node_new(info);
}

void free_data(topic_node_data *info)
{
    g_slist_free_full(info->events,
                      [](gpointer record) { event_free(static_cast<event *>(record)); });
    CHECK(info->topic != NULL);
    g_free(info->topic);
    g_free(info->nice_name);
    g_free(info->name_space);
    g_hash_table_unref(info->tags);
    g_slice_free(topic_node_data, info);
}

void add_tags(topic_node_data *info, GList *tags)
{
    for (GList *link = tags; link; link = link->next)
        g_hash_table_replace(info->tags, link->data, g_strdup("true"));
    g_list_free(tags);
}

// A tree that grows. What it knows of the nodes besides, it knows only while it does.
class TopicTree {
public:
    void add(const event_declaration *declaration);
    GNode *head() { return head_; }

private:
    // A node's children by topic and name space. Under no name space stands the topic's first
    // child, whatever its own: who names none means that one.
    struct Children {
        std::map<std::pair<std::string_view, std::string_view>, GNode *> by_name;
        GNode *last = nullptr;
    };

    GNode *find_or_add_child(GNode *parent, const Level &level);
    GNode *descend(const event *event);

    GNode *head_ = g_node_new(nullptr);
    std::unordered_map<GNode *, Children> children_;
};

GNode *TopicTree::find_or_add_child(GNode *parent, const Level &level)
{
    Children &children = children_[parent];
    auto found = children.by_name.find({level.topic, level.name_space});
    if (found != children.by_name.end())
        return found->second;

    GNode *made = new_node(level);
    g_node_insert_after(parent, children.last, made);
    children.last = made;
    std::string_view topic = data_of(made)->topic;
    children.by_name.try_emplace({topic, ""}, made);
    children.by_name.try_emplace({topic, view_of(data_of(made)->name_space)}, made);
    return made;
}

// The node of the event's deepest topic, with all that its keys say on the way.
GNode *TopicTree::descend(const event *event)
{
    GNode *node = head_;
    guint depth = 0;
    while (auto level = level_at(event, depth++)) {
        node = find_or_add_child(node, *level);
        topic_node_data *info = data_of(node);
        if (!info->nice_name)
            info->nice_name = copy_unless_empty(level->nice_name);
        add_tags(info, event_get_tags_at(event, level->position));
    }
    return node;
}

void TopicTree::add(const event_declaration *declaration)
{
    EventOwner event(event_declaration_generate_event(declaration));
    if (event_is_internal(event.get()))
        return;
    if (view_of(event_get_value(event.get(), "topic0")).empty()) {
        log_warning("Event is external but doesn't contain a topic");
        return;
    }
    GNode *head = head_;
    GNode *node = descend(event.get());
    CHECK(node != NULL);
    CHECK(node != head);
    topic_node_data *info = data_of(node);
    CHECK(info != NULL);
    info->events = g_slist_prepend(info->events, event.release());
}

} // namespace

GNode *build_topic_tree(GList *declarations)
{
    TopicTree tree;
    for (GList *link = declarations; link; link = link->next) {
        DeclarationOwner declaration(static_cast<event_declaration *>(link->data));
        tree.add(declaration.get());
    }
    g_list_free(declarations);
    return tree.head();
}

void free_topic_tree(GNode *head)
{
    g_node_unlink(head);
    GNode *node = head;
    while (node) {
        if (node->children) {
            node = node->children;
            continue;
        }
        GNode *parent = node->parent;
        if (node->data)
            free_data(data_of(node));
        g_node_destroy(node);
        node = parent;
    }
}

} // namespace qandor
