// SPDX-License-Identifier: LGPL-2.1-or-later

// Subscribe expressions.

#include "properties/messagesubjects.hpp"

#include "platform/xmlnode.hpp"

namespace qandor::test {

void ExpressionSubject::add_condition(RandomRecords &random, const Trace &trace)
{
    using AddKey = gboolean (*)(subscribe_expression *, const gchar *);
    using AddBoth = gboolean (*)(subscribe_expression *, const gchar *, const gchar *);
    std::string key = random.key(), value = random.value();
    bool negated = random.one_in(3);
    unsigned what = random.number(4);
    trace.note("  condition " + std::to_string(what) + (negated ? " not " : " ") + shown(key) +
               " " + shown(value));
    gboolean result = FALSE;
    if (what == 0) {
        AddKey add_key = negated ? subscribe_expression_add_not_key : subscribe_expression_add_key;
        result = add_key(record_.get(), key.c_str());
        add(plain_.content, made_open(key, negated));
    } else if (what == 1) {
        AddKey add_value =
            negated ? subscribe_expression_add_not_value : subscribe_expression_add_value;
        result = add_value(record_.get(), value.c_str());
        add(plain_.content, made_for_any_key(value, negated));
    } else {
        AddBoth add_both =
            negated ? subscribe_expression_add_key_not_value : subscribe_expression_add_key_value;
        result = add_both(record_.get(), key.c_str(), value.c_str());
        add(plain_.content, made(key, value, negated));
    }
    require(result, "add condition");
}

void ExpressionSubject::edit(RandomRecords &random, const Trace &trace)
{
    subscribe_expression *its = record_.get();
    switch (random.number(10)) {
    case 0:
        trace.note("  ids");
        subscribe_expression_set_id(its, plain_.id = random.id());
        subscribe_expression_set_consumer_token(its, plain_.consumer_token = random.id());
        break;
    case 1:
        trace.note("  names");
        plain_.dbus_service = random.text();
        plain_.dbus_object = random.text();
        subscribe_expression_set_dbus_service(its, plain_.dbus_service.c_str());
        subscribe_expression_set_dbus_object(its, plain_.dbus_object.c_str());
        break;
    case 2:
        trace.note("  or");
        subscribe_expression_or(its);
        begin_alternative(plain_.content);
        break;
    case 3: {
        std::string key = random.key(), name_space = random.name_space();
        trace.note("  name space of " + shown(key));
        PlainKeyValue *one = find(plain_.content, key);
        if (one)
            one->name_space = name_space;
        require_same<long long>(
            subscribe_expression_set_name_space(its, key.c_str(), name_space.c_str()),
            one != nullptr, "set name space");
        break;
    }
    case 4:
    case 5:
    case 6:
        test::edit(content(), plain_.content, random, trace);
        break;
    default:
        add_condition(random, trace);
    }
}

void ExpressionSubject::check_reads()
{
    check_bytes();
    test::check_reads(content(), plain_.content);
    const subscribe_expression *its = record_.get();
    require_same<long long>(subscribe_expression_get_id(its), plain_.id, "id");
    require_same<long long>(subscribe_expression_get_consumer_token(its), plain_.consumer_token,
                            "token");
    require_same<long long>(subscribe_expression_get_clandestine(its), plain_.clandestine,
                            "clandestine");
    require_same(maybe(subscribe_expression_get_dbus_service(its)), MaybeText(plain_.dbus_service),
                 "service");
    require_same(maybe(subscribe_expression_get_dbus_object(its)), MaybeText(plain_.dbus_object),
                 "object");
}

void ExpressionSubject::check_forms()
{
    test::check_forms(content());
    check_printed(subscribe_expression_print);
    Owned<gchar> text(subscribe_expression_serialize_xml(record_.get()));
    PlainExpression expected;
    expected.content = read_from_xml(plain_.content, Expression);
    ExpressionSubject(Owned<subscribe_expression>(subscribe_expression_deserialize_xml(text.get())),
                      expected)
        .check_reads();
}

SubjectPtr ExpressionSubject::copy() const
{
    PlainExpression plain = plain_;
    plain.content = copied(plain_.content, Expression);
    return std::make_unique<ExpressionSubject>(
        Owned<subscribe_expression>(subscribe_expression_copy(record_.get())), plain);
}

SubjectPtr ExpressionSubject::read_back() const
{
    return std::make_unique<ExpressionSubject>(reread(), test::reread(plain_));
}

SubjectPtr make_expression(RandomRecords &random)
{
    PlainExpression plain;
    plain.content.type = Expression;
    if (random.one_in(2)) {
        plain.clandestine = static_cast<int>(random.number(2));
        return std::make_unique<ExpressionSubject>(
            Owned<subscribe_expression>(subscribe_expression_new_full(plain.clandestine)), plain);
    }
    plain = random.expression();
    return std::make_unique<ExpressionSubject>(read_from<subscribe_expression>(plain),
                                               reread(plain));
}

} // namespace qandor::test
