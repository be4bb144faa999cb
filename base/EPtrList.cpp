#include "base/EPtrList.h"

#include <algorithm>
#include <iterator>

EPtrList::Position EPtrList::AddTail(void* element) {
    Reserve();
    const auto node = m_Removed.begin();
    *node = {element, node};
    m_Nodes.splice(m_Nodes.end(), m_Removed, node);
    return &*node;
}

void EPtrList::Reserve() {
    if (m_Removed.empty()) {
        m_Removed.emplace_back();
    }
}

void* EPtrList::RemoveHead() {
    if (m_Nodes.empty()) {
        return nullptr;
    }
    void* element = m_Nodes.front().m_pElement;
    RemoveAt(GetHeadPosition());
    return element;
}

void EPtrList::RemoveAt(Position position) {
    m_Removed.splice(m_Removed.begin(), m_Nodes, position->m_Self);
}

void EPtrList::RemoveAll() {
    m_Removed.splice(m_Removed.begin(), m_Nodes);
}

EPtrList::Position EPtrList::Find(const void* element, Position start) const {
    const auto begin = start != nullptr ? start->m_Self : m_Nodes.begin();
    return At(std::find_if(begin, m_Nodes.end(), [&](const Node& node) { return node.m_pElement == element; }));
}

void* EPtrList::GetNext(Position& position) const {
    void* element = position->m_pElement;
    position = At(std::next(position->m_Self));
    return element;
}
