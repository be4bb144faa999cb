#include "base/EPtrList.h"

EPtrList::Position EPtrList::AddTail(void* element) {
    Node* node = m_Nodes.Make(element, m_pTail, nullptr);
    (m_pTail != nullptr ? m_pTail->m_pNext : m_pHead) = node;
    m_pTail = node;
    ++m_nCount;
    return node;
}

void* EPtrList::RemoveHead() {
    if (m_pHead == nullptr) {
        return nullptr;
    }
    void* element = m_pHead->m_pElement;
    RemoveAt(m_pHead);
    return element;
}

void EPtrList::RemoveAt(Position position) {
    (position->m_pPrevious != nullptr ? position->m_pPrevious->m_pNext : m_pHead) = position->m_pNext;
    (position->m_pNext != nullptr ? position->m_pNext->m_pPrevious : m_pTail) = position->m_pPrevious;
    m_Nodes.Free(position);
    --m_nCount;
}

void EPtrList::RemoveAll() {
    while (m_pHead != nullptr) {
        RemoveAt(m_pHead);
    }
}

EPtrList::Position EPtrList::Find(const void* element, Position start) const {
    Position position = start != nullptr ? start : m_pHead;
    while (position != nullptr && position->m_pElement != element) {
        position = position->m_pNext;
    }
    return position;
}

void* EPtrList::GetNext(Position& position) const {
    void* element = position->m_pElement;
    position = position->m_pNext;
    return element;
}
