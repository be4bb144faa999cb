#pragma once

#include "base/EString.h"

#include <numeric>
#include <string>
#include <string_view>
#include <unordered_map>

// A map from text to pointer. Keys are case-sensitive. It never frees the values. Not thread-safe.
class KVBASE_API EMapStringToPtr {
    // Every report looks up a short name: the key is not copied, and the hash is cheap.
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::wstring_view key) const {
            return std::accumulate(key.begin(), key.end(), std::size_t{0},
                                   [](std::size_t hash, wchar_t c) { return 31 * hash + static_cast<std::size_t>(c); });
        }
    };
    using Entries = std::unordered_map<std::wstring, void*, Hash, std::equal_to<>>;

public:
    using Position = const Entries::value_type*; // null is past the end

    explicit EMapStringToPtr(int /*blockSize*/) {}
    EMapStringToPtr(const EMapStringToPtr&) = delete;
    EMapStringToPtr& operator=(const EMapStringToPtr&) = delete;

    // Non-zero, and the value, when the key is present.
    int Lookup(const wchar_t* key, void*& value) const;

    // The slot of the key, inserted with a null value when it is absent.
    void*& operator[](const wchar_t* key);

    int GetCount() const { return static_cast<int>(m_Entries.size()); }

    // Walking, in no particular order:
    //     for (auto p = map.GetStartPosition(); p != nullptr;) { map.GetNextAssoc(p, key, value); ... }
    // or, without copies of the keys:
    //     for (const auto& [key, value] : map) { ... }
    Position GetStartPosition() const { return At(m_Entries.begin()); }
    void GetNextAssoc(Position& position, EString& key, void*& value) const;
    Entries::const_iterator begin() const { return m_Entries.begin(); }
    Entries::const_iterator end() const { return m_Entries.end(); }

private:
    Position At(Entries::const_iterator entry) const { return entry != m_Entries.end() ? &*entry : nullptr; }

    Entries m_Entries;
};
