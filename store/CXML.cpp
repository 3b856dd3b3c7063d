// A record's life: making it, naming it, and taking its tree apart without recursion.
#include <utility>
#include <vector>

#include "store/CXML.h"

// Children that only this record holds would otherwise die inside its destructor, recursing once
// per level of the tree.
CXML::~CXML() {
    cutTree(*this, false);
}

void CXML::cutTree(CXML& root, bool sharedToo) {
    std::vector<host::Ref<CXML>> pending;
    auto detach = [&pending, sharedToo](CXML& record) {
        for (host::Ref<CXML>& child : record.containers_) {
            // Counted one element at a time: a child inserted twice is shared until the first
            // of its two elements lets go.
            if (child && (sharedToo || child.shared().use_count() == 1)) {
                pending.push_back(std::exchange(child, nullptr));
            } else {
                child = nullptr;
            }
        }
    };
    detach(root);
    while (!pending.empty()) {
        host::Ref<CXML> next = std::move(pending.back());
        pending.pop_back();
        detach(*next);
    }
}

void CXML::SetName(const host::String& name) {
    name_ = name;
    CXMLNameIndex::treeChanged();
}

void CXML::Constructor() {
    DeleteObjects();
}

// Each element is cleared before its child is visited, so a shared child is cut once and a
// record that holds itself cannot loop.
void CXML::Release() {
    cutTree(*this, true);
    CXMLNameIndex::treeChanged();
}
