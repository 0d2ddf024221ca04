// SPDX-License-Identifier: LGPL-2.1-or-later

// A queue of which some items may be dropped when too much waits: first states of a property for
// which a newer one waits, then plain events, the oldest first each. Nothing else is ever dropped.
//
//     front                                                        back
//     [event 1] [state A] [call] [event 2] [state A'] [state B] [event 3]
//         2nd      1st      -       3rd        -          -        4th     in the order of dropping
//
// Each step costs the same however long the queue is.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace qandor {

enum class Droppable { Never, Event, State };

struct DropClass {
    Droppable kind = Droppable::Never;
    std::string state; // which one: newer ones of the same text supersede it
};

template <class Item> class DropQueue {
    struct Entry;
    using Place = typename std::list<Entry>::iterator;
    using Places = std::list<Place>;

    struct Entry {
        Item item;
        std::size_t size;
        DropClass kind;
        bool superseded = false;
        typename Places::iterator among_droppable{}; // of plain events and of superseded states
    };

public:
    struct Victim {
        Place place;
        bool is_state;
    };

    bool empty() const { return entries_.empty(); }
    std::size_t bytes() const { return bytes_; }
    Item &front() { return entries_.front().item; }

    void push(Item item, std::size_t size, DropClass kind)
    {
        bytes_ += size;
        Place place = entries_.insert(entries_.end(), Entry{std::move(item), size, kind});
        if (kind.kind == Droppable::Event)
            place->among_droppable = events_.insert(events_.end(), place);
        if (kind.kind != Droppable::State)
            return;
        auto [newest, is_first] = newest_states_.try_emplace(kind.state, place);
        if (!is_first)
            supersede(std::exchange(newest->second, place));
    }

    Item pop()
    {
        Place first = entries_.begin();
        protect(first);
        return take(first);
    }

    // The item that has to go next, if any may.
    std::optional<Victim> victim()
    {
        if (!superseded_.empty())
            return Victim{superseded_.front(), true};
        if (!events_.empty())
            return Victim{events_.front(), false};
        return std::nullopt;
    }
    Item &item(const Victim &victim) { return victim.place->item; }
    Item drop(const Victim &victim)
    {
        protect(victim.place);
        return take(victim.place);
    }
    // Leaves the item in its place with the size that it has shrunk to. It is never dropped then.
    void keep(const Victim &victim, std::size_t size)
    {
        protect(victim.place);
        bytes_ = bytes_ - victim.place->size + size;
        victim.place->size = size;
        victim.place->kind.kind = Droppable::Never;
    }

    template <class Function> void for_each(Function function)
    {
        for (Entry &entry : entries_)
            function(entry.item);
    }

private:
    void supersede(Place place)
    {
        place->superseded = true;
        place->among_droppable = superseded_.insert(superseded_.end(), place);
    }
    // Takes it off the lists of what may be dropped.
    void protect(Place place)
    {
        if (std::exchange(place->superseded, false))
            superseded_.erase(place->among_droppable);
        else if (place->kind.kind == Droppable::Event)
            events_.erase(place->among_droppable);
        else if (place->kind.kind == Droppable::State)
            newest_states_.erase(place->kind.state);
    }
    Item take(Place place)
    {
        bytes_ -= place->size;
        Item item = std::move(place->item);
        entries_.erase(place);
        return item;
    }

    std::list<Entry> entries_;
    std::size_t bytes_ = 0;
    Places events_; // in the order of the queue
    Places superseded_;
    std::map<std::string, Place> newest_states_;
};

} // namespace qandor
