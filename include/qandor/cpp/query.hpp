// SPDX-License-Identifier: LGPL-2.1-or-later

/**
 * Asking what there is:
 *
 *     for (const Topic &topic : EventQuery().topics().children)
 *         std::cout << topic.name << "\n";
 *
 * What is asked waits for the thread that iterates the default main context, on which it must not
 * be called. Asking for what is declared wants an event switch: without one it ends the process.
 */
#pragma once

#include <qandor/cpp/declaration.hpp>
#include <qandor/eventquery.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace qandor {

/** A topic with the events that end there, and the topics under it. The root has no name. */
struct Topic {
    std::string name;
    std::string name_space;
    std::string nice_name;
    std::vector<std::string> tags; // sorted
    std::vector<Event> events;     // with open values, the first declared first
    std::vector<Topic> children;
};

class EventQuery {
public:
    EventQuery() : handle_(event_query_new()) {}

    /** Everything that producers have declared just now. */
    std::vector<Declaration> declarations() const
    {
        return take(event_query_get_declarations(handle_.get()));
    }
    /** The declarations of all installed types. */
    std::vector<Declaration> types() const
    {
        return take(event_query_get_declaration_types(handle_.get()));
    }
    /** What declarations() tells, as a tree; internal declarations are left out. */
    Topic topics() const { return take(event_query_get_topic_tree(handle_.get())); }
    /** What types() tells, as a tree. */
    Topic topics_of_types() const
    {
        return take(event_query_get_declaration_type_tree(handle_.get()));
    }

private:
    struct Deleter {
        void operator()(::event_query *handle) const { event_query_free(handle); }
    };

    static std::vector<Declaration> take(GList *list)
    {
        std::vector<Declaration> taken;
        for (GList *link = list; link; link = link->next)
            taken.emplace_back(static_cast<::event_declaration *>(link->data));
        g_list_free(list);
        return taken;
    }

    static Topic take(GNode *root)
    {
        if (!root)
            return {};
        Topic taken = copy(root);
        event_query_free_topic_tree(root);
        return taken;
    }

    static Topic copy(GNode *node)
    {
        Topic topic;
        if (const auto *data = static_cast<const topic_node_data *>(node->data))
            describe(*data, topic);
        for (GNode *child = node->children; child; child = child->next)
            topic.children.push_back(copy(child));
        return topic;
    }

    static void describe(const topic_node_data &data, Topic &topic)
    {
        topic.name = data.topic;
        topic.name_space = detail::string_of(data.name_space);
        topic.nice_name = detail::string_of(data.nice_name);
        for (GSList *link = data.events; link; link = link->next)
            topic.events.emplace_back(event_copy(static_cast<const ::event *>(link->data)));
        std::reverse(topic.events.begin(), topic.events.end());
        GHashTableIter iterator;
        gpointer tag;
        g_hash_table_iter_init(&iterator, data.tags);
        while (g_hash_table_iter_next(&iterator, &tag, nullptr))
            topic.tags.emplace_back(static_cast<const char *>(tag));
        std::sort(topic.tags.begin(), topic.tags.end());
    }

    std::unique_ptr<::event_query, Deleter> handle_;
};

} // namespace qandor
