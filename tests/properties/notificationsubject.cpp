// SPDX-License-Identifier: LGPL-2.1-or-later

// Notifications, each with its expression and declaration.

#include "properties/messagesubjects.hpp"

namespace qandor::test {
namespace {

class NotificationSubject : public SubjectOf<notification, PlainNotification> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "notification"; }
    void edit(RandomRecords &random, const Trace &trace) override;
    void check_reads() override;
    void check_forms() override { check_printed(notification_print); }
    SubjectPtr copy() const override;
    SubjectPtr read_back() const override
    {
        return std::make_unique<NotificationSubject>(reread(), test::reread(plain_));
    }
};

void NotificationSubject::edit(RandomRecords &random, const Trace &trace)
{
    notification *its = record_.get();
    switch (random.number(6)) {
    case 0:
        trace.note("  ids");
        notification_set_subscription_id(its, plain_.subscription_id = random.id());
        notification_set_declaration_id(its, plain_.declaration_id = random.id());
        break;
    case 1:
        trace.note("  timestamp");
        plain_.seconds = static_cast<std::int32_t>(random.id());
        plain_.microseconds = static_cast<std::int32_t>(random.id());
        notification_set_timestamp(its, plain_.seconds, plain_.microseconds);
        break;
    case 2:
        trace.note("  user data");
        plain_.user_data = random.user_data();
        notification_set_user_data(its, plain_.user_data.data(),
                                   static_cast<guint32>(plain_.user_data.size()));
        break;
    case 3:
        trace.note("  kind");
        plain_.removed = static_cast<int>(random.number(2));
        notification_set_type(its, static_cast<guint32>(plain_.removed));
        break;
    case 4: // what is nested is borrowed, and is the notification's own
        trace.note("  in its expression");
        test::edit(subscribe_expression_get_inspectable(notification_get_subscribe_expression(its)),
                   plain_.expression.content, random, trace);
        break;
    default:
        trace.note("  in its declaration");
        test::edit(event_declaration_get_inspectable(notification_get_declaration(its)),
                   plain_.declaration.content, random, trace);
    }
}

void NotificationSubject::check_reads()
{
    check_bytes();
    const notification *its = record_.get();
    require_same<long long>(notification_get_subscription_id(its), plain_.subscription_id,
                            "subscription id");
    require_same<long long>(notification_get_declaration_id(its), plain_.declaration_id,
                            "declaration id");
    require_same<long long>(notification_get_type(its), plain_.removed, "kind");
    require_same<long long>(notification_is_type_deleted(its), plain_.removed, "kind");
    require_same<long long>(notification_is_internal(its), plain_.declaration.content.internal,
                            "internal");
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GTimeVal time = notification_get_timestamp(its);
    G_GNUC_END_IGNORE_DEPRECATIONS
    require_same<long long>(time.tv_sec, plain_.seconds, "seconds");
    require_same<long long>(time.tv_usec, plain_.microseconds, "microseconds");
    Owned<gchar> data(static_cast<gchar *>(notification_get_user_data(its)));
    require(plain_.user_data.empty()
                ? !data
                : data && std::string(data.get(), plain_.user_data.size()) == plain_.user_data,
            "user data");
    for (const auto &[key, bucket] : plain_.declaration.content.and_lists.back().keyed) {
        require_same(maybe(notification_get_value(its, key.c_str())),
                     MaybeText(bucket.front().value), "value");
        require_same(maybe(notification_get_name_space(its, key.c_str())),
                     MaybeText(bucket.front().name_space), "name space");
    }
    test::check_reads(
        subscribe_expression_get_inspectable(notification_get_subscribe_expression(its)),
        plain_.expression.content);
    test::check_reads(event_declaration_get_inspectable(notification_get_declaration(its)),
                      plain_.declaration.content);
}

SubjectPtr NotificationSubject::copy() const
{
    PlainNotification plain = plain_;
    plain.expression.content = copied(plain_.expression.content, Expression);
    plain.declaration.content = copied(plain_.declaration.content, Declaration);
    return std::make_unique<NotificationSubject>(
        Owned<notification>(notification_copy(record_.get())), plain);
}

} // namespace

SubjectPtr notification_from(const Subject &first, const Subject &second)
{
    const auto *expression = dynamic_cast<const ExpressionSubject *>(&first);
    const auto *declaration = dynamic_cast<const DeclarationSubject *>(&second);
    if (!expression || !declaration)
        return nullptr;
    PlainNotification plain;
    plain.expression = expression->plain();
    plain.expression.content = copied(plain.expression.content, Expression);
    plain.declaration = declaration->plain();
    plain.declaration.content = copied(plain.declaration.content, Declaration);
    Owned<notification> made(notification_new());
    notification_set_subscribe_expression(made.get(), expression->record());
    notification_set_declaration(made.get(), declaration->record());
    return std::make_unique<NotificationSubject>(std::move(made), plain);
}

SubjectPtr make_notification(RandomRecords &random)
{
    PlainNotification plain = random.notification();
    return std::make_unique<NotificationSubject>(read_from<notification>(plain), reread(plain));
}

} // namespace qandor::test
