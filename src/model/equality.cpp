// SPDX-License-Identifier: LGPL-2.1-or-later

// Whether two inspectables hold the same, whatever the order in which they were built. Partners are
// paired greedily: equality is transitive, so any equal partner is as good as another.

#include "model/inspectable.hpp"

#include "platform/check.hpp"

#include <vector>

using namespace qandor;

namespace {

// Whether each element of the one range has an equal partner of its own in the other, which is of
// the same size.
template <class Range, class AreEqual>
bool pair_up(const Range &range1, const Range &range2, std::size_t size, AreEqual are_equal)
{
    std::vector<bool> paired(size, false);
    for (const auto &element : range1) {
        bool found = false;
        std::size_t place = 0;
        for (const auto &candidate : range2) {
            if (!paired[place] && are_equal(element, candidate)) {
                paired[place] = found = true;
                break;
            }
            ++place;
        }
        if (!found)
            return false;
    }
    return true;
}

bool bucket_is_equal(Bucket bucket1, Bucket bucket2)
{
    if (bucket1.count() != bucket2.count())
        return false;
    if (bucket1.count() == 1)
        return key_value_is_equal(&bucket1.first(), &bucket2.first());
    return pair_up(bucket1, bucket2, bucket1.count(),
                   [](const key_value &key_value1, const key_value &key_value2) {
                       return key_value_is_equal(&key_value1, &key_value2);
                   });
}

bool and_list_is_equal(const AndList &list1, const AndList &list2)
{
    if (list1.keyed().size() != list2.keyed().size() ||
        list1.wildcards().size() != list2.wildcards().size())
        return false;
    for (Bucket bucket : list1.keyed()) {
        Bucket partner = list2.find(bucket.key());
        if (!partner || !bucket_is_equal(bucket, partner))
            return false;
    }
    for (Bucket bucket : list1.wildcards()) {
        Bucket partner = list2.find_wildcard(bucket.first().value);
        if (!partner || !bucket_is_equal(bucket, partner))
            return false;
    }
    return true;
}

} // namespace

gboolean inspectable_is_equal(const inspectable *inspect1, const inspectable *inspect2)
{
    CHECK(inspect1 != NULL);
    CHECK(inspect2 != NULL);
    CHECK_TYPE_IS_VALID(inspect1);
    CHECK_TYPE_IS_VALID(inspect2);
    return inspect1->type == inspect2->type && inspect1->internal == inspect2->internal &&
           are_same_tags(inspect1->tags, inspect2->tags) &&
           inspect1->and_lists.size() == inspect2->and_lists.size() &&
           pair_up(inspect1->and_lists, inspect2->and_lists, inspect2->and_lists.size(),
                   and_list_is_equal);
}
