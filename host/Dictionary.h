#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/Array.h"
#include "host/DictionaryKey.h"
#include "host/Raise.h"

namespace host {

// The host's Dictionary: insertion-ordered entries, looked up by a hash index that is built only
// once the table outgrows a short linear scan (most records hold a handful of keys).
// Remove costs O(n): later entries move down and are re-indexed, as in a map-vector.
template <class V>
class Dictionary {
public:
    bool HasKey(const DictionaryKey& key) const { return find(key) != kAbsent; }

    V& Value(const DictionaryKey& key) { return entries_[existing(key)].second; }
    const V& Value(const DictionaryKey& key) const { return entries_[existing(key)].second; }

    // The host's "Value(key) = v": overwrites an entry in place, or appends a new one.
    void SetValue(const DictionaryKey& key, V value) {
        std::size_t at = find(key);
        if (at != kAbsent) {
            entries_[at].second = std::move(value);
            return;
        }
        entries_.emplace_back(key, std::move(value));
        if (!index_.empty()) {
            index_.emplace(key, entries_.size() - 1);
        } else if (entries_.size() > kLinearLimit) {
            rebuildIndex();
        }
    }

    void Remove(const DictionaryKey& key) {
        std::size_t at = existing(key);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
        if (!index_.empty()) {
            rebuildIndex();
        }
    }

    std::int64_t Count() const { return static_cast<std::int64_t>(entries_.size()); }

    const DictionaryKey& Key(std::int64_t position) const {
        return entries_[checked(position)].first;
    }

    // A copy: entries may be removed while a caller walks it.
    Array<DictionaryKey> Keys() const {
        Array<DictionaryKey> keys;
        for (const auto& entry : entries_) {
            keys.Append(entry.first);
        }
        return keys;
    }

    // Our own helpers: the value at a position, and a lookup without raising.
    V& valueAt(std::int64_t position) { return entries_[checked(position)].second; }
    const V& valueAt(std::int64_t position) const { return entries_[checked(position)].second; }
    V* lookup(const DictionaryKey& key) {
        std::size_t at = find(key);
        return at == kAbsent ? nullptr : &entries_[at].second;
    }

private:
    static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);
    static constexpr std::size_t kLinearLimit = 8;

    std::size_t find(const DictionaryKey& key) const {
        if (index_.empty()) {
            for (std::size_t i = 0; i < entries_.size(); ++i) {
                if (entries_[i].first == key) {
                    return i;
                }
            }
            return kAbsent;
        }
        auto it = index_.find(key);
        return it == index_.end() ? kAbsent : it->second;
    }

    std::size_t existing(const DictionaryKey& key) const {
        std::size_t at = find(key);
        if (at == kAbsent) {
            raiseKeyNotFound();
        }
        return at;
    }

    std::size_t checked(std::int64_t position) const {
        if (position < 0 || position >= Count()) {
            raiseOutOfBounds(position, Count() - 1);
        }
        return static_cast<std::size_t>(position);
    }

    void rebuildIndex() {
        index_.clear();
        if (entries_.size() <= kLinearLimit) {
            return;
        }
        index_.reserve(entries_.size());
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            index_.emplace(entries_[i].first, i);
        }
    }

    std::vector<std::pair<DictionaryKey, V>> entries_;
    std::unordered_map<DictionaryKey, std::size_t, DictionaryKeyHash> index_;
};

}  // namespace host
