// SPDX-License-Identifier: LGPL-2.1-or-later

// The tree of topics of some declarations, arranged as the library arranges the whole one.
#pragma once

#include "cli/describe.hpp"

#include <list>

namespace qandor::cli {

struct TopicNode {
    std::string name;
    std::string name_space;
    std::string nice_name;
    std::vector<std::string> tags; // sorted, each once
    std::vector<const Declaration *> declarations;
    std::list<TopicNode> children;
};

// The root of the tree. Internal declarations are not in it, nor any without a topic. The
// declarations have to outlive it.
TopicNode tree_of(const std::vector<Declaration> &declarations);

} // namespace qandor::cli
