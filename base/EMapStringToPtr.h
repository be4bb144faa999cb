#pragma once

#include "base/ENodePool.h"
#include "base/EString.h"

#include <vector>

// A map from text to pointer; keys are compared exactly, character by character. It never frees the values. Not for
// several threads without a lock of the caller's.
class KVBASE_API EMapStringToPtr {
public:
    struct Entry {
        EString m_Key;
        std::size_t m_nHash;
        void* m_pValue;
        Entry* m_pNextInBucket;
        Entry* m_pNext; // in order of insertion, the order of walking
    };
    using Position = Entry*;

    // `blockSize`: how many entries one allocation holds.
    explicit EMapStringToPtr(int blockSize) : m_Entries(blockSize) {}
    EMapStringToPtr(const EMapStringToPtr&) = delete;
    EMapStringToPtr& operator=(const EMapStringToPtr&) = delete;
    ~EMapStringToPtr();

    // Non-zero, and the value, when the key is present; the cost does not depend on the number of entries.
    int Lookup(const wchar_t* key, void*& value) const;

    // The slot of the key, inserted with a null value when it is absent.
    void*& operator[](const wchar_t* key);

    int GetCount() const { return m_nCount; }

    // Walking: for (auto p = map.GetStartPosition(); p != nullptr;) { map.GetNextAssoc(p, key, value); ... }
    Position GetStartPosition() const { return m_pFirst; }
    void GetNextAssoc(Position& position, EString& key, void*& value) const;

private:
    Entry* Find(const wchar_t* key, std::size_t hash) const;
    void Spread();

    ENodePool<Entry> m_Entries;
    std::vector<Entry*> m_Buckets; // a power of two of them, or none
    Entry* m_pFirst = nullptr;
    Entry* m_pLast = nullptr;
    int m_nCount = 0;
};
