#pragma once

#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/Array.h"
#include "host/DictionaryKey.h"
#include "host/Raise.h"

namespace host {

// The host's Dictionary: insertion-ordered entries, looked up by a hash index that is built only
// once the table outgrows a short linear scan (most records hold a handful of keys). The index
// is a flat open-addressing table of positions, so an entry costs no allocation of its own.
// Remove costs O(n): later entries move down and are re-indexed, as in a map-vector.
template <class V>
class Dictionary {
public:
    bool HasKey(const DictionaryKey& key) const { return find(key) != kAbsent; }

    V& Value(const DictionaryKey& key) { return entries_[existing(key)].second; }
    const V& Value(const DictionaryKey& key) const { return entries_[existing(key)].second; }

    // The host's "Value(key) = v": overwrites an entry in place, or appends a new one.
    void SetValue(DictionaryKey key, V value) {
        const Probe found = probe(key);
        if (found.at != kAbsent) {
            entries_[found.at].second = std::move(value);
            return;
        }
        entries_.emplace_back(std::move(key), std::move(value));
        if (entries_.size() <= kLinearLimit) {
            return;
        }
        if (slots_.empty() || 2 * entries_.size() > slots_.size()) {
            rebuildIndex();
        } else {
            // The probe for the absent key ended at the very slot the new entry takes.
            slots_[found.slot] = static_cast<std::uint32_t>(entries_.size() - 1);
        }
    }

    void Remove(const DictionaryKey& key) {
        std::size_t at = existing(key);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
        rebuildIndex();
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

    // Our own helpers: room for a known count, the value at a position, and a lookup without
    // raising.
    void reserve(std::size_t count) { entries_.reserve(count); }
    V& valueAt(std::int64_t position) { return entries_[checked(position)].second; }
    const V& valueAt(std::int64_t position) const { return entries_[checked(position)].second; }
    V* lookup(const DictionaryKey& key) {
        std::size_t at = find(key);
        return at == kAbsent ? nullptr : &entries_[at].second;
    }

private:
    static constexpr std::size_t kAbsent = static_cast<std::size_t>(-1);
    static constexpr std::size_t kLinearLimit = 8;
    static constexpr std::uint32_t kEmptySlot = UINT32_MAX;

    // Where the key stands in entries_, or kAbsent; with an index, also the slot the probe
    // ended at.
    struct Probe {
        std::size_t at = kAbsent;
        std::size_t slot = 0;
    };

    Probe probe(const DictionaryKey& key) const {
        if (slots_.empty()) {
            for (std::size_t i = 0; i < entries_.size(); ++i) {
                if (entries_[i].first == key) {
                    return {i, 0};
                }
            }
            return {};
        }
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t slot = home(key);; slot = (slot + 1) & mask) {
            const std::uint32_t at = slots_[slot];
            if (at == kEmptySlot) {
                return {kAbsent, slot};
            }
            if (entries_[at].first == key) {
                return {at, slot};
            }
        }
    }

    std::size_t find(const DictionaryKey& key) const { return probe(key).at; }

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

    // Keeps the table at most half full, so a probe ends soon at an empty slot.
    void rebuildIndex() {
        slots_.clear();
        if (entries_.size() <= kLinearLimit) {
            return;
        }
        std::size_t size = 4 * kLinearLimit;
        while (size < 4 * entries_.size()) {
            size *= 2;
        }
        slots_.assign(size, kEmptySlot);
        shift_ = 64 - static_cast<unsigned>(std::countr_zero(size));
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            place(i);
        }
    }

    // The top bits of a multiplicative mix: the low bits of the string hash alone depend on
    // the low bits of each byte only.
    std::size_t home(const DictionaryKey& key) const {
        return static_cast<std::size_t>(
            (std::uint64_t{DictionaryKeyHash{}(key)} * 0x9E3779B97F4A7C15ULL) >> shift_);
    }

    void place(std::size_t position) {
        const std::size_t mask = slots_.size() - 1;
        std::size_t slot = home(entries_[position].first);
        while (slots_[slot] != kEmptySlot) {
            slot = (slot + 1) & mask;
        }
        slots_[slot] = static_cast<std::uint32_t>(position);
    }

    std::vector<std::pair<DictionaryKey, V>> entries_;
    std::vector<std::uint32_t> slots_;  // positions in entries_; empty while the scan is short
    unsigned shift_ = 0;
};

}  // namespace host
