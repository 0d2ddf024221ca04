// SPDX-License-Identifier: LGPL-2.1-or-later

// Whether one inspectable satisfies the conditions of another. Nearly all are ordinary, are
// compared value by value and allocate nothing; the others are for containment.cpp.

#include "model/matching.hpp"

#include "model/matchingrules.hpp"
#include "platform/check.hpp"

using namespace qandor;

namespace {

struct OnlyOrdinary {
    static Answer weigh(Bucket, Bucket) { return Answer::Unknown; }
    static Answer weigh(const AndList &, Buckets) { return Answer::Unknown; }
};

[[gnu::noinline]] bool contains_anew(const inspectable &container, const inspectable &containee)
{
    return Containment(container).satisfies(containee);
}

} // namespace

gboolean inspectable_contains(const inspectable *container, const inspectable *containee)
{
    CHECK(container != NULL);
    CHECK(containee != NULL);
    CHECK_TYPE_IS_VALID(container);
    CHECK_TYPE_IS_VALID(containee);
    Answer answer = weigh(*container, *containee, OnlyOrdinary());
    return answer == Answer::Unknown ? contains_anew(*container, *containee)
                                     : answer == Answer::Yes;
}

gboolean inspectable_is_complete(const inspectable *inspect)
{
    CHECK(inspect != NULL);
    CHECK(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT);
    CHECK_TEXT(inspect->and_lists.size() == 1, "g_list_length(inspect->and_lists) == 1");
    for (Bucket bucket : inspect->current()->keyed())
        if (bucket.first().is_open())
            return FALSE;
    return TRUE;
}
