#pragma once

#include "base/ENodePool.h"
#include "base/Export.h"

// A list of pointers in insertion order. It never frees what its elements point to. Not for several threads without a
// lock of the caller's.
class KVBASE_API EPtrList {
public:
    struct Node {
        void* m_pElement;
        Node* m_pPrevious;
        Node* m_pNext;
    };
    // The place of an element; null is past the end. Stays valid until that element is removed.
    using Position = Node*;

    // `blockSize`: how many nodes one allocation holds.
    explicit EPtrList(int blockSize) : m_Nodes(blockSize) {}
    EPtrList(const EPtrList&) = delete;
    EPtrList& operator=(const EPtrList&) = delete;
    ~EPtrList() = default;

    Position AddTail(void* element); // throws std::bad_alloc; not as the next addition after Reserve
    void Reserve() { m_Nodes.Reserve(); }
    void* RemoveHead(); // null when the list is empty
    void RemoveAt(Position position);
    void RemoveAll();

    // The first position of the element at or behind `start` (null: from the head), or null.
    Position Find(const void* element, Position start) const;

    int GetCount() const { return m_nCount; }
    bool IsEmpty() const { return m_nCount == 0; }

    // Walking: for (auto p = list.GetHeadPosition(); p != nullptr;) use(list.GetNext(p));
    Position GetHeadPosition() const { return m_pHead; }
    void* GetNext(Position& position) const;

private:
    ENodePool<Node> m_Nodes;
    Node* m_pHead = nullptr;
    Node* m_pTail = nullptr;
    int m_nCount = 0;
};
