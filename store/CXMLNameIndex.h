#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/Array.h"
#include "host/Ref.h"
#include "host/String.h"

class CXML;

// Where each name stands among one record's children, so that a list walked by running number
// costs one step per child instead of a pass over all of them each time. It gives exactly what
// the pass would give, nil elements included.
//
// An index is trusted only while no record anywhere has changed its children or its name since
// it was built: a child may stand under several parents, and has no link back to them, so every
// such change calls treeChanged(), which retires all indexes at once.
class CXMLNameIndex {
public:
    static void treeChanged();

    bool current() const { return builtAt_ == generation_; }
    void rebuild(const host::Array<host::Ref<CXML>>& children);

    // Array positions of the children whose name equals name, in order, up to the first nil.
    const std::vector<std::int64_t>& positions(const host::String& name) const;
    // The first position above 0 that holds nil, or 0 when none does.
    std::int64_t firstNil() const { return firstNil_; }

private:
    struct FoldedHash {
        std::size_t operator()(const std::string& text) const {
            return host::String::hashFolded(text);
        }
    };
    struct FoldedEqual {
        bool operator()(const std::string& a, const std::string& b) const {
            return host::String::equalFolded(a, b);
        }
    };

    // Records live on one thread at a time, like everything else of the driver.
    static inline std::uint64_t generation_ = 1;

    std::uint64_t builtAt_ = 0;  // generations start at 1, so a new index is stale
    std::int64_t firstNil_ = 0;
    std::unordered_map<std::string, std::vector<std::int64_t>, FoldedHash, FoldedEqual> byName_;
};
