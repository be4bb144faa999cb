#pragma once

#include "base/Export.h"

#include <list>

// A list of pointers in insertion order. It never frees what they point to. Not thread-safe.
class KVBASE_API EPtrList {
public:
    struct Node {
        void* m_pElement;
        std::list<Node>::const_iterator m_Self;
    };
    // The place of an element, valid until that element is removed. Null is past the end.
    using Position = const Node*;

    explicit EPtrList(int /*blockSize*/) {}
    EPtrList(const EPtrList&) = delete;
    EPtrList& operator=(const EPtrList&) = delete;

    Position AddTail(void* element); // throws std::bad_alloc
    void Reserve();                  // the next AddTail does not throw
    void* RemoveHead();              // null when the list is empty
    void RemoveAt(Position position);
    void RemoveAll();

    // The first position of the element at or after `start` (null: from the head), or null.
    Position Find(const void* element, Position start) const;

    int GetCount() const { return static_cast<int>(m_Nodes.size()); }
    bool IsEmpty() const { return m_Nodes.empty(); }

    // Walking: for (auto p = list.GetHeadPosition(); p != nullptr;) use(list.GetNext(p));
    Position GetHeadPosition() const { return At(m_Nodes.begin()); }
    void* GetNext(Position& position) const;

private:
    Position At(std::list<Node>::const_iterator node) const { return node != m_Nodes.end() ? &*node : nullptr; }

    std::list<Node> m_Nodes;
    std::list<Node> m_Removed; // reused by AddTail: a queue of steady length allocates nothing
};
