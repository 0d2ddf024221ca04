// SPDX-License-Identifier: LGPL-2.1-or-later

// The subjects of which others are made.
#pragma once

#include "properties/subjectof.hpp"

namespace qandor::test {

class EventSubject : public SubjectOf<event, PlainEvent> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "event"; }
    void edit(RandomRecords &random, const Trace &trace) override;
    void check_reads() override;
    void check_forms() override;
    SubjectPtr copy() const override;
    SubjectPtr read_back() const override;
    inspectable *content() const override { return event_get_inspectable(record_.get()); }
    const PlainInspectable *plain_content() const override { return &plain_.content; }
    void take_content(const Subject &source);

private:
    void check_key(const std::string &key) const;
};

class DeclarationSubject : public SubjectOf<event_declaration, PlainDeclaration> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "declaration"; }
    void edit(RandomRecords &random, const Trace &trace) override;
    void check_reads() override;
    void check_forms() override;
    SubjectPtr copy() const override;
    SubjectPtr read_back() const override;
    inspectable *content() const override
    {
        return event_declaration_get_inspectable(record_.get());
    }
    const PlainInspectable *plain_content() const override { return &plain_.content; }

    PlainEvent plain_event() const;
    // The state of a property, which nobody fills; NULL when a value is open, or it is none.
    SubjectPtr property_event() const;

private:
    void add_key(RandomRecords &random, const Trace &trace);
    void make_property(RandomRecords &random, const Trace &trace);
    void check_xml() const;

    bool may_call_ = true; // what was read has the address of somebody else's function
};

class ExpressionSubject : public SubjectOf<subscribe_expression, PlainExpression> {
public:
    using SubjectOf::SubjectOf;

    std::string name() const override { return "expression"; }
    void edit(RandomRecords &random, const Trace &trace) override;
    void check_reads() override;
    void check_forms() override;
    SubjectPtr copy() const override;
    SubjectPtr read_back() const override;
    inspectable *content() const override
    {
        return subscribe_expression_get_inspectable(record_.get());
    }
    const PlainInspectable *plain_content() const override { return &plain_.content; }

private:
    void add_condition(RandomRecords &random, const Trace &trace);
};

} // namespace qandor::test
