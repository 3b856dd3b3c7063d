#pragma once

#include <cstdint>
#include <vector>

#include "FuzzInput.h"
#include "host/RuntimeException.h"
#include "host/TextEncoding.h"
#include "store/CXML.h"

namespace fuzz {

// The lookup by name and running number against a plain pass over the children. The name goes
// in labelled UTF-8, so that the lookup takes its bytes as they are.
inline void checkLookup(CXML& record, const host::String& childName) {
    const host::String name(childName.bytes(), host::TextEncoding::UTF8);
    const auto& children = record.Containers();
    std::int64_t matches = 0;
    for (std::int64_t i = 1; i <= children.Ubound(); ++i) {
        if (children[i]->Name() == name) {
            ++matches;
            require(record.GetContainer(name, matches) == children[i],
                    "the n-th child of a name is the n-th in order");
        }
    }
    require(record.GetContainerCount(name) == matches, "the count of a name counts its children");
    require(record.GetContainer(name, matches + 1) == nullptr, "past the last child of a name");
}

// Reads every value of every record through each typed getter, and checks the lookup of each
// child's name, as the readers of a unit list walk it. Iterative, so a deep tree costs no stack
// here.
inline void walk(const host::Ref<CXML>& root) {
    std::vector<host::Ref<CXML>> pending{root};
    while (!pending.empty()) {
        const host::Ref<CXML> record = pending.back();
        pending.pop_back();
        for (std::int64_t i = 0; i < record->GetKeyCount(); ++i) {
            const host::String key = record->GetKeyByIndex(i);
            record->GetStringValue(key);
            record->GetIntegerValue(key);
            record->GetUInt64Value(key);
            record->GetDoubleValue(key);
            record->GetBooleanValue(key);
            record->GetColorValue(key);
            record->getDate(key);
            record->GetBinaryData(key);
        }
        const auto& children = record->Containers();
        for (std::int64_t i = 1; i <= children.Ubound(); ++i) {
            checkLookup(*record, children[i]->Name());
            pending.push_back(children[i]);
        }
    }
    try {
        root->getAsDebugData();
    } catch (const host::RuntimeException&) {
        // Too deep for the readable form: the stack check refused it.
    }
}

}  // namespace fuzz
