// SPDX-License-Identifier: LGPL-2.1-or-later

// Value types and their texts, lists of tags, and the pair that fills a property's state key.

#include "model/valuetypes.hpp"

#include "model/callbackparams.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

using namespace qandor;

namespace {

// A number of 53 bits times a million, which not every processor has an integer for: two parts, of
// which the lower has 32 bits.
class Millionfold {
public:
    explicit Millionfold(guint64 number)
    {
        constexpr guint64 million = 1000000;
        guint64 low = (number & G_MAXUINT32) * million;
        high_ = (number >> 32) * million + (low >> 32);
        low_ = low & G_MAXUINT32;
    }

    // Divided by two to the power of the shift, 1 to 96, and rounded to even.
    guint64 shifted(int shift) const
    {
        guint64 quotient = shift <= 32 ? high_ << (32 - shift) | low_ >> shift
                                       : (shift < 96 ? high_ >> (shift - 32) : 0);
        bool is_half = bit(shift - 1);
        bool is_more = is_half && has_bits_below(shift - 1);
        return quotient + (is_more || (is_half && quotient % 2 == 1) ? 1 : 0);
    }

private:
    bool bit(int place) const { return (place < 32 ? low_ >> place : high_ >> (place - 32)) & 1; }
    bool has_bits_below(int place) const
    {
        constexpr guint64 one = 1;
        if (place <= 32)
            return low_ & ((one << place) - 1);
        return low_ || (high_ & ((one << (place - 32)) - 1));
    }

    guint64 high_;
    guint64 low_;
};

// The number with six decimals, rounded to even as "%f" does, where it is small enough to be exact
// in integers; nothing otherwise. Most values of most events are, and printf is by far the dearest
// step of filling one in.
std::string_view format_small_double(char *buffer, gdouble number)
{
    constexpr gdouble small = 1LL << 43;
    gdouble magnitude = std::fabs(number);
    if (!(magnitude < small))
        return {};

    int exponent;
    auto mantissa = static_cast<guint64>(std::ldexp(std::frexp(magnitude, &exponent), 53));
    int shift = 53 - exponent; // the number is the mantissa divided by two to the power of it
    guint64 millionths = shift <= 96 ? Millionfold(mantissa).shifted(shift) : 0;

    char *cursor = buffer;
    if (std::signbit(number))
        *cursor++ = '-';
    constexpr guint64 million = 1000000;
    cursor = std::to_chars(cursor, cursor + 20, millionths / million).ptr;
    // A leading 1 keeps the zeroes of the decimals; the point takes its place.
    char *point = cursor;
    cursor = std::to_chars(cursor, cursor + 8, million + millionths % million).ptr;
    *point = '.';
    return {buffer, static_cast<std::size_t>(cursor - buffer)};
}

std::string_view format_double(char *buffer, int size, gdouble number)
{
    std::string_view text = format_small_double(buffer, number);
    return text.empty() ? g_ascii_formatd(buffer, size, "%f", number) : text;
}

} // namespace

ValueText::ValueText(gconstpointer value, guint32 value_type)
{
    switch (value_type) {
    case VALUE_TYPE_INT: {
        auto end =
            std::to_chars(buffer_, buffer_ + sizeof buffer_, *static_cast<const gint *>(value));
        text_ = {buffer_, static_cast<std::size_t>(end.ptr - buffer_)};
        break;
    }
    case VALUE_TYPE_BOOL:
        text_ = *static_cast<const gboolean *>(value) ? "1" : "0";
        break;
    case VALUE_TYPE_DOUBLE:
        text_ = format_double(buffer_, sizeof buffer_, *static_cast<const gdouble *>(value));
        break;
    case VALUE_TYPE_STRING:
        if (value)
            text_ = static_cast<const gchar *>(value);
        break;
    }
}

gchar *event_utils_value_type_to_string(gconstpointer value, guint32 value_type)
{
    ValueText text(value, value_type);
    return text.view().data() ? g_strndup(text.view().data(), text.view().size()) : nullptr;
}

namespace {

std::vector<const gchar *> sorted_texts(GList *list)
{
    std::vector<const gchar *> texts;
    for (GList *link = list; link; link = link->next)
        texts.push_back(static_cast<const gchar *>(link->data));
    std::sort(texts.begin(), texts.end(),
              [](const gchar *one, const gchar *other) { return g_strcmp0(one, other) < 0; });
    return texts;
}

} // namespace

gboolean event_utils_tag_list_is_equal(GList *list1, GList *list2)
{
    std::vector<const gchar *> texts1 = sorted_texts(list1);
    std::vector<const gchar *> texts2 = sorted_texts(list2);
    return std::equal(
        texts1.begin(), texts1.end(), texts2.begin(), texts2.end(),
        [](const gchar *one, const gchar *other) { return g_strcmp0(one, other) == 0; });
}

callback_params *callback_params_new(const gchar *key, const gchar *value)
{
    return new callback_params(key, value);
}

void callback_params_free(callback_params *params)
{
    delete params;
}
