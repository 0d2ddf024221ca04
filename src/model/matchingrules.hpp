// SPDX-License-Identifier: LGPL-2.1-or-later

// The rules by which one inspectable satisfies the conditions of another, apart from what is not
// ordinary: several conditions or values of a key, and key wildcards. Who uses them says what is to
// be done about those.
#pragma once

#include "model/inspectable.hpp"

namespace qandor {

// A condition alone on its key, as most are, against the one key-value that is there.
inline bool condition_is_satisfied(Bucket present, const key_value &condition)
{
    Verdict verdict = weigh(present ? &present.first() : nullptr, condition);
    return verdict == Verdict::Matched || (verdict != Verdict::Excluded && condition.negated);
}

enum class Answer { No, Yes, Unknown };

inline Answer answer(bool is_yes)
{
    return is_yes ? Answer::Yes : Answer::No;
}

// What is not ordinary is for the rest.
template <class Rest>
inline Answer weigh(const AndList &present, const AndList &conditions, Rest &rest)
{
    if (!present.wildcards().empty())
        return Answer::No;
    for (Bucket bucket : conditions.keyed()) {
        Bucket its = present.find(bucket.key());
        if (bucket.count() == 1 && (!its || its.count() == 1)) {
            if (!condition_is_satisfied(its, bucket.first()))
                return Answer::No;
        } else if (Answer its_answer = rest.weigh(its, bucket); its_answer != Answer::Yes) {
            return its_answer;
        }
    }
    return conditions.wildcards().empty() ? Answer::Yes
                                          : rest.weigh(present, conditions.wildcards());
}

template <class Rest>
inline Answer weigh(const inspectable &container, const inspectable &containee, Rest &&rest)
{
    for (const AndList &present : container.and_lists)
        for (const AndList &conditions : containee.and_lists)
            if (Answer answer = weigh(present, conditions, rest); answer != Answer::No)
                return answer;
    return Answer::No;
}

} // namespace qandor
