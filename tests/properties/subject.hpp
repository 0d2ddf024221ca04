// SPDX-License-Identifier: LGPL-2.1-or-later

// A record of the library beside its plain model: what a sequence edits, copies, writes and reads.
#pragma once

#include "properties/content.hpp"
#include "support/recordkinds.hpp"

#include <memory>

namespace qandor::test {

using KeyValuePair = std::pair<const key_value *, PlainKeyValue>;

class Subject {
public:
    Subject() = default;
    Subject(const Subject &) = delete;
    Subject &operator=(const Subject &) = delete;
    virtual ~Subject() = default;

    virtual std::string name() const = 0;
    // One random edit of both.
    virtual void edit(RandomRecords &random, const Trace &trace) = 0;
    // These throw a Difference.
    virtual void check_reads() = 0;
    virtual void check_forms() = 0;

    // Nothing, where a record cannot be written yet, or is never written.
    virtual PlainBytes bytes() const = 0;
    // NULL, where a kind has none.
    virtual std::unique_ptr<Subject> copy() const = 0;
    virtual std::unique_ptr<Subject> read_back() const = 0;

    // What is to be matched and compared; NULL where there is none.
    virtual inspectable *content() const { return nullptr; }
    virtual const PlainInspectable *plain_content() const { return nullptr; }
    virtual std::optional<KeyValuePair> single() const { return std::nullopt; }
};

using SubjectPtr = std::unique_ptr<Subject>;

// What becomes of two; NULL when they are not of the kinds for it.
SubjectPtr event_from(const Subject &declaration, RandomRecords &random);
SubjectPtr notification_from(const Subject &expression, const Subject &declaration);
bool give_content(Subject &event, const Subject &source);

// One of each kind: empty, or read from random bytes.
SubjectPtr make_inspectable(RandomRecords &random);
SubjectPtr make_key_value(RandomRecords &random);
SubjectPtr make_event(RandomRecords &random);
SubjectPtr make_declaration(RandomRecords &random);
SubjectPtr make_expression(RandomRecords &random);
SubjectPtr make_state(RandomRecords &random);
SubjectPtr make_notification(RandomRecords &random);
SubjectPtr make_ids();

} // namespace qandor::test
