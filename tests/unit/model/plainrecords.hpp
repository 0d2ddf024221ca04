// SPDX-License-Identifier: LGPL-2.1-or-later

// Every record a second time, as plain data with its own writer and readers of bytes and XML, to
// hold the library against. Written as plainly as docs/wire-format.md and docs/xml-format.md put
// it; shares no code with the library but the XML tree.
#pragma once

#include "platform/xmlnode.hpp"

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace qandor::test {

struct PlainKeyValue {
    std::string key;
    int key_wildcard = 0;
    std::string name_space;
    std::string key_nice_name;
    std::string value;
    int value_wildcard = 0;
    std::string value_nice_name;
    std::string value_user_string;
    std::string complex_type_name;
    int negated = 0;
    int value_type = 4;
    std::vector<std::string> tags;
    bool settable = false; // was open when it was made; is not written

    // Everything that is written.
    bool operator==(const PlainKeyValue &other) const;
};

using PlainBucket = std::vector<PlainKeyValue>;

// Buckets by their key (by their value), in the order in which those came. That order says nothing,
// the order inside of a bucket does.
class PlainBuckets {
public:
    using Named = std::pair<std::string, PlainBucket>;

    // Made when there is none.
    PlainBucket &operator[](const std::string &name);
    const PlainBucket *find(const std::string &name) const;
    bool operator==(const PlainBuckets &other) const;

    bool empty() const { return buckets_.empty(); }
    std::size_t size() const { return buckets_.size(); }
    auto begin() { return buckets_.begin(); }
    auto end() { return buckets_.end(); }
    auto begin() const { return buckets_.begin(); }
    auto end() const { return buckets_.end(); }

private:
    std::vector<Named> buckets_;
};

struct PlainAndList {
    PlainBuckets keyed;
    PlainBuckets wildcards;

    bool operator==(const PlainAndList &) const = default;
};

struct PlainInspectable {
    int type = 0;
    int internal = 0;
    std::vector<PlainAndList> and_lists{1};
    std::vector<std::string> tags;
    // Not written: a declaration that was read has no positions until a key is added.
    bool has_positions = true;

    // Everything that is written.
    bool operator==(const PlainInspectable &other) const;
};

struct PlainEvent {
    PlainInspectable content;
    std::string user_data;
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    std::uint32_t global_id = 0;
    std::uint32_t local_id = 0;
    std::uint32_t producer_id = 0;
    int property = 0;

    bool operator==(const PlainEvent &) const = default;
};

struct PlainDeclaration {
    std::uint32_t producer_id = 0;
    std::uint32_t local_id = 0;
    std::uint32_t global_id = 0;
    int property = 0;
    std::uint32_t callback = 0;
    std::uint32_t callback_data = 0;
    PlainInspectable content;

    bool operator==(const PlainDeclaration &) const = default;
};

struct PlainExpression {
    std::uint32_t id = 0;
    std::string dbus_service;
    std::string dbus_object;
    std::uint32_t consumer_token = 0;
    int clandestine = 0;
    PlainInspectable content;

    bool operator==(const PlainExpression &) const = default;
};

struct PlainState {
    PlainInspectable content;

    bool operator==(const PlainState &) const = default;
};

struct PlainNotification {
    std::string user_data;
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    std::uint32_t subscription_id = 0;
    std::uint32_t declaration_id = 0;
    int removed = 0;
    PlainExpression expression;
    PlainDeclaration declaration;

    bool operator==(const PlainNotification &) const = default;
};

using PlainBytes = std::vector<std::uint8_t>;

PlainBytes to_bytes(const PlainKeyValue &record);
PlainBytes to_bytes(const PlainInspectable &record);
PlainBytes to_bytes(const PlainEvent &record);
PlainBytes to_bytes(const PlainDeclaration &record);
PlainBytes to_bytes(const PlainExpression &record);
PlainBytes to_bytes(const PlainState &record);
PlainBytes to_bytes(const PlainNotification &record);

// Reads the whole of the bytes as one record; throws std::runtime_error when they are not one.
template <class Record> Record from_bytes(const PlainBytes &bytes);

// The XML text of an inspectable's object.
std::string to_xml(const PlainInspectable &content, const std::string &root);
// The inspectable in an element, as it is written; throws when it is not one of the root's name.
PlainInspectable from_xml(const xmlnode *node, const std::string &root, int type);

// What a copy and what reading from XML make of a record: equal tags of a key are one.
std::vector<std::string> distinct(const std::vector<std::string> &tags);
PlainInspectable with_distinct_tags(PlainInspectable content);

// Whether two are the same: neither the order of tags, nor of key-values in a bucket, nor of
// and-lists says anything.
bool are_equal(const PlainKeyValue &one, PlainKeyValue other);
bool are_equal(const PlainInspectable &one, const PlainInspectable &other);

// Random records over a small alphabet, so that keys and values meet often.
class RandomRecords {
public:
    explicit RandomRecords(unsigned seed) : engine_(seed) {}

    // A larger alphabet, and up to so many key-values in an and-list.
    void widen(unsigned keys, unsigned values, unsigned most)
    {
        keys_ = keys;
        values_ = values;
        most_ = most;
    }

    unsigned most() const { return most_; }

    unsigned number(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
    bool one_in(unsigned count) { return number(count) == 0; }
    std::uint32_t id() { return static_cast<std::uint32_t>(engine_()); }
    std::string key();
    std::string value();
    std::string name_space();
    std::string tag();
    std::string text();
    std::string user_data();

    PlainKeyValue key_value(bool expression);
    PlainInspectable inspectable(int type);
    PlainEvent event();
    PlainDeclaration declaration();
    PlainExpression expression();
    PlainState state();
    PlainNotification notification();

private:
    std::string word(const char *letters);
    std::vector<std::string> tags();

    std::mt19937 engine_;
    unsigned keys_ = 4, values_ = 3, most_ = 5;
};

} // namespace qandor::test
