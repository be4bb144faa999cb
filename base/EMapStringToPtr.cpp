#include "base/EMapStringToPtr.h"

#include <cstdint>
#include <cwchar>

namespace {

// FNV-1a over whole characters (Fowler, Noll, Vo), with a last mix so that the low bits depend on every character.
std::size_t Hash(const wchar_t* key) {
    std::uint32_t hash = 2166136261U;
    for (; *key != L'\0'; ++key) {
        hash = (hash ^ static_cast<std::uint32_t>(*key)) * 16777619U;
    }
    return hash ^ (hash >> 15);
}

} // namespace

EMapStringToPtr::~EMapStringToPtr() {
    while (m_pFirst != nullptr) {
        Entry* entry = m_pFirst;
        m_pFirst = entry->m_pNext;
        m_Entries.Free(entry);
    }
}

EMapStringToPtr::Entry* EMapStringToPtr::Find(const wchar_t* key, std::size_t hash) const {
    if (m_Buckets.empty()) {
        return nullptr;
    }
    Entry* entry = m_Buckets[hash & (m_Buckets.size() - 1)];
    while (entry != nullptr && !(entry->m_nHash == hash && std::wcscmp(entry->m_Key, key) == 0)) {
        entry = entry->m_pNextInBucket;
    }
    return entry;
}

int EMapStringToPtr::Lookup(const wchar_t* key, void*& value) const {
    key = OrEmpty(key);
    const Entry* entry = Find(key, Hash(key));
    if (entry == nullptr) {
        return 0;
    }
    value = entry->m_pValue;
    return 1;
}

void*& EMapStringToPtr::operator[](const wchar_t* key) {
    key = OrEmpty(key);
    const std::size_t hash = Hash(key);
    if (Entry* entry = Find(key, hash); entry != nullptr) {
        return entry->m_pValue;
    }
    if (static_cast<std::size_t>(m_nCount) >= m_Buckets.size()) {
        Spread();
    }
    Entry*& bucket = m_Buckets[hash & (m_Buckets.size() - 1)];
    bucket = m_Entries.Make(EString(key), hash, nullptr, bucket, nullptr);
    (m_pLast != nullptr ? m_pLast->m_pNext : m_pFirst) = bucket;
    m_pLast = bucket;
    ++m_nCount;
    return bucket->m_pValue;
}

// Twice the buckets, so that one holds an entry on average whatever their number.
void EMapStringToPtr::Spread() {
    std::vector<Entry*> buckets(m_Buckets.empty() ? 16 : 2 * m_Buckets.size());
    for (Entry* entry = m_pFirst; entry != nullptr; entry = entry->m_pNext) {
        Entry*& bucket = buckets[entry->m_nHash & (buckets.size() - 1)];
        entry->m_pNextInBucket = bucket;
        bucket = entry;
    }
    m_Buckets.swap(buckets);
}

void EMapStringToPtr::GetNextAssoc(Position& position, EString& key, void*& value) const {
    key = position->m_Key;
    value = position->m_pValue;
    position = position->m_pNext;
}
