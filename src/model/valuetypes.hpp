// SPDX-License-Identifier: LGPL-2.1-or-later

// The text of typed values.
#pragma once

#include <qandor/eventutils.h>

#include <glib.h>

#include <string_view>

namespace qandor {

// The text of a value of one of the four types, without a copy where the value is a string. A type
// that is none of the four has no text: view().data() is NULL.
class ValueText {
public:
    ValueText(gconstpointer value, guint32 value_type);
    ValueText(const ValueText &) = delete;
    ValueText &operator=(const ValueText &) = delete;

    std::string_view view() const { return text_; }

private:
    // Long enough for the largest double in full and its six decimals.
    char buffer_[512];
    std::string_view text_;
};

} // namespace qandor

#define CHECK_VALUE_TYPE(type)                                                                     \
    CHECK_TEXT((type) >= VALUE_TYPE_INT && (type) <= VALUE_TYPE_STRING,                            \
               #type " == VALUE_TYPE_INT || " #type " == VALUE_TYPE_BOOL || " #type                \
                     " == VALUE_TYPE_DOUBLE || " #type " == VALUE_TYPE_STRING")
