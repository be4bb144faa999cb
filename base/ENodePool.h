#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

// Gives out nodes of one type from blocks of `blockSize`, and takes them back for the next one: a container that grows
// and shrinks around a steady size allocates nothing. The blocks are freed with the pool. Not for several threads.
template <class Node>
class ENodePool {
public:
    explicit ENodePool(int blockSize) : m_nBlockSize(blockSize > 0 ? static_cast<std::size_t>(blockSize) : 1) {}
    ENodePool(const ENodePool&) = delete;
    ENodePool& operator=(const ENodePool&) = delete;

    template <class... Arguments>
    Node* Make(Arguments&&... arguments) {
        Reserve();
        Slot* slot = m_pFree;
        Slot* next = slot->m_pNext;
        Node* node = new (slot->m_Room) Node{std::forward<Arguments>(arguments)...};
        m_pFree = next;
        return node;
    }

    // The next Make needs no memory of the system's.
    void Reserve() {
        if (m_pFree == nullptr) {
            AddBlock();
        }
    }

    void Free(Node* node) {
        node->~Node();
        Slot* slot = reinterpret_cast<Slot*>(node);
        slot->m_pNext = m_pFree;
        m_pFree = slot;
    }

private:
    union Slot {
        Slot* m_pNext;
        alignas(Node) unsigned char m_Room[sizeof(Node)];
    };

    void AddBlock() {
        m_Blocks.push_back(std::make_unique<Slot[]>(m_nBlockSize));
        Slot* block = m_Blocks.back().get();
        for (std::size_t i = m_nBlockSize; i-- > 0;) {
            block[i].m_pNext = m_pFree;
            m_pFree = &block[i];
        }
    }

    std::size_t m_nBlockSize;
    std::vector<std::unique_ptr<Slot[]>> m_Blocks;
    Slot* m_pFree = nullptr;
};
