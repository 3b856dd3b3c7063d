#include "store/CXMLNameIndex.h"

#include "store/CXML.h"

void CXMLNameIndex::treeChanged() {
    ++generation_;
}

void CXMLNameIndex::rebuild(const host::Array<host::Ref<CXML>>& children) {
    byName_.clear();
    firstNil_ = 0;
    for (std::int64_t i = 1; i <= children.Ubound(); ++i) {
        const host::Ref<CXML>& child = children[i];
        if (!child) {
            // A walk stops here with an exception, so nothing behind it can be found.
            firstNil_ = i;
            break;
        }
        byName_[child->Name().bytes()].push_back(i);
    }
    builtAt_ = generation_;
}

const std::vector<std::int64_t>& CXMLNameIndex::positions(const host::String& name) const {
    static const std::vector<std::int64_t> none;
    auto found = byName_.find(name.bytes());
    return found == byName_.end() ? none : found->second;
}
