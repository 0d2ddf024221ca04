// SPDX-License-Identifier: LGPL-2.1-or-later

// The tree of topics that declarations are arranged in.
#pragma once

#include <qandor/eventquery.h>

namespace qandor {

// Returns a new tree of events of the declarations. The list and the declarations are used up.
GNode *build_topic_tree(GList *declarations);

// Frees a tree with all that it has.
void free_topic_tree(GNode *head);

} // namespace qandor
