#pragma once

#include "base/Export.h"

#include <list>

// A list of pointers in insertion order. It never frees what its elements point to. Not for several threads without a
// lock of the caller's.
class KVBASE_API EPtrList {
public:
    struct Node {
        void* m_pElement;
        std::list<Node>::const_iterator m_Self;
    };
    // The place of an element; null is past the end. Stays valid until that element is removed.
    using Position = const Node*;

    explicit EPtrList(int /*blockSize*/) {} // memory is taken by the element, whatever the block size
    EPtrList(const EPtrList&) = delete;
    EPtrList& operator=(const EPtrList&) = delete;
    ~EPtrList();

    Position AddTail(void* element); // throws std::bad_alloc; not as the next addition after Reserve
    void Reserve();
    void* RemoveHead(); // null when the list is empty
    void RemoveAt(Position position);
    void RemoveAll();

    // The first position of the element at or behind `start` (null: from the head), or null.
    Position Find(const void* element, Position start) const;

    int GetCount() const { return static_cast<int>(m_Nodes.size()); }
    bool IsEmpty() const { return m_Nodes.empty(); }

    // Walking: for (auto p = list.GetHeadPosition(); p != nullptr;) use(list.GetNext(p));
    Position GetHeadPosition() const { return At(m_Nodes.begin()); }
    void* GetNext(Position& position) const;

private:
    Position At(std::list<Node>::const_iterator node) const { return node != m_Nodes.end() ? &*node : nullptr; }

    std::list<Node> m_Nodes;
    std::list<Node> m_Removed; // for the next additions: a queue of a steady length allocates nothing
};
