// SPDX-License-Identifier: LGPL-2.1-or-later

// The event query as applications hold it.

#include "platform/check.hpp"
#include "platform/commandsource.hpp"
#include "query/topictree.hpp"

#include <qandor/eventquery.h>
#include <qandor/query.h>

using namespace qandor;

struct event_query {
    Query *query = nullptr;
    command_source *commands = nullptr;
};

event_query *event_query_new(void)
{
    auto *made = new event_query();
    made->query = query_new();
    made->commands = command_source_new_full(nullptr, made, 1, nullptr);
    command_source_post_function(made->commands, [made] { query_init_dbus(made->query); });
    return made;
}

void event_query_free(event_query *event_query)
{
    if (!event_query)
        return;
    command_source_post_function(event_query->commands, [event_query] {
        g_object_unref(event_query->query);
        command_source_free(event_query->commands);
        delete event_query;
    });
}

namespace {

struct Question {
    GList *(*ask)(Query *);
    GList *answer;
};

void run_question(gpointer data, gpointer user_data)
{
    auto *question = static_cast<Question *>(data);
    question->answer = question->ask(static_cast<event_query *>(user_data)->query);
}

GList *ask_and_wait(event_query *handle, GList *(*ask)(Query *))
{
    Question question{ask, nullptr};
    command_source_run(handle->commands, run_question, &question);
    return question.answer;
}

} // namespace

GList *event_query_get_declarations(event_query *event_query)
{
    RETURN_VALUE_IF_FAIL(event_query != NULL, nullptr);
    return ask_and_wait(event_query, query_send_get_declarations);
}

GList *event_query_get_declaration_types(event_query *event_query)
{
    RETURN_VALUE_IF_FAIL(event_query != NULL, nullptr);
    return ask_and_wait(event_query, query_send_get_declaration_types);
}

GNode *event_query_get_topic_tree(event_query *event_query)
{
    return build_topic_tree(event_query_get_declarations(event_query));
}

GNode *event_query_get_declaration_type_tree(event_query *event_query)
{
    return build_topic_tree(event_query_get_declaration_types(event_query));
}

void event_query_free_topic_tree(GNode *head)
{
    CHECK(head != NULL);
    free_topic_tree(head);
}

void event_query_free_declaration_tree(GNode *head)
{
    CHECK(head != NULL);
    free_topic_tree(head);
}
